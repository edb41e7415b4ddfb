// The fifteen functions of the classification engine's library, libasapsdk.so, that katd calls.
//
// The library built here is a stand-in for the closed engine: it has its soname and its symbols, and what it
// answers is written in a text file instead of being asked from a service. katd cannot tell the two apart.
//
// Threads: every function may be called by any number of threads at once, through one handle too. A call that
// delays or hangs holds no lock and so keeps no other call waiting. A thread attaches itself before its first
// call and detaches itself when it ends; the stand-in serves the others as well.
//
// Failures: a function that fails stores type, code and description for its own thread alone, where
// CSDKException_* read them until the next failure of the same thread. Nothing is thrown.
//
// Environment, looked up at every call (so a program that sets these while other threads call is in error):
//
//   ASAPSDK_RULES  path of the rules file. It is read again when its inode, size or time of change is another
//                  one; the sequences then begin anew. Without the variable, and while the file cannot be
//                  read, there are no rules. Replace the file by renaming another over it: a reader may come
//                  at any time.
//   ASAPSDK_TRACE  path of a file to which every call appends one line with one write(2): the function, a
//                  tab, the kernel's thread id, a tab, the argument or "-", a tab, the result or "-". The
//                  line is written when the result is chosen, that is before a delay or a hang begins. Bytes
//                  below 0x20, 0x7f and the backslash are written as \xHH.
//
// Nothing else is written, but the cache file that CSDKMain_SaveWebSecCache is given and one line on
// standard error for each rule that cannot be understood.
//
// Rules file: one rule a line. Empty lines and lines whose first character that is no blank is '#' are
// skipped. A rule is a subject, a blank, and outcomes in the order of the calls, separated by the word
// "then". The last outcome serves every further call as well. A URL, text or name with blanks stands in '"'.
//
//   url URL OUTCOMES      this URL and no other
//   prefix TEXT OUTCOMES  every URL that begins with the text; the longest such text wins
//   host NAME OUTCOMES    every URL of this host, whatever its port
//   create OUTCOMES       CSDKMain_Create
//   load OUTCOMES         CSDKMain_LoadWebSecCache
//   save OUTCOMES         CSDKMain_SaveWebSecCache
//
// A URL is compared without blanks around it, without a leading "http://", "https://" or "ftp://", and with
// its host in lower case; so are the URL, text or name of a rule. A url rule goes before any prefix rule, a
// prefix rule before any host rule. A URL without a rule has the categories that were learnt for it, or else
// is Unknown.
//
// Outcomes of a URL:
//   5,44,300              these category numbers, 0 to 65535, in this order
//   unknown               no category yet: asking again may bring some
//   final                 no category, and asking again brings none
// Outcomes of create, load and save:
//   ok                    what the function does without a rule
//   partial TYPE CODE "TEXT" (save) fails after one half of the file was written
// Outcomes of both:
//   fail TYPE CODE "TEXT" fails with this type and code (signed decimal numbers) and this description, which
//                         holds no '"'
//   delay MS OUTCOME      the outcome, this many milliseconds later; not before another delay
//   hang                  never returns
//
// Examples:
//   host www.museum.example    12
//   prefix shop.example/tools  21,22 then fail 2 110 "service timed out" then final
//   url slow.example/          delay 1500 5
//   save                       ok then partial 3 28 "no space left"
#ifndef ASAPSDK_H
#define ASAPSDK_H

#define ASAPSDK_API __attribute__((visibility("default")))

// Types of the failures that no rule asked for.
enum {
    ASAPSDK_BAD_ARGUMENT = 1,  // a null handle, text or path
    ASAPSDK_BAD_CACHE = 3,     // cache file not read or written, cut or changed; the code is the errno, or 0
    ASAPSDK_NO_MEMORY = 4
};

// Bit 0 of CSDKUrlCat_GetFlags: the answer has no category and asking again brings none.
enum { ASAPSDK_FLAG_FINAL = 1 };

#ifdef __cplusplus
extern "C" {
#endif

// A new engine, or null on failure. The connection string is a row of NAME=VALUE with ';' between; of its
// fields WebSecCacheMaxEntries alone is used: the number of URLs to learn (0, absent or not a number: none).
// The caller ends it with CSDKMain_Close.
ASAPSDK_API void* CSDKMain_Create(const char* connection);

// Ends the engine and forgets what it has learnt, which is not saved. Null: nothing is done.
// REQUIRES: no other call with this handle is running or follows.
ASAPSDK_API void CSDKMain_Close(void* sdkMain);

// The answer for a URL, or null on failure. The caller ends it with CSDKUrlCat_Close. An answer with
// categories is learnt by its URL; when the engine is full, what was learnt longest ago is forgotten.
ASAPSDK_API void* CSDKMain_ClassifyUrl(void* sdkMain, const char* url);

// Stores the address and the count of the answer's category numbers. The array is the answer's and goes with
// it; it may hold zeros. A null answer: null and 0. Out-parameters that are null are skipped.
ASAPSDK_API void CSDKUrlCat_GetCategories(void* urlCat, const unsigned short** categories,
                                          unsigned short* count);

// The answer's flags, see ASAPSDK_FLAG_FINAL; 0 for null.
ASAPSDK_API int CSDKUrlCat_GetFlags(void* urlCat);

// Ends the answer. Null: nothing is done.
ASAPSDK_API void CSDKUrlCat_Close(void* urlCat);

// Replaces what the engine has learnt by what the file holds, of which only the newest are taken when the
// engine learns fewer. 0 on success. Otherwise not 0, and nothing has changed: a file that is cut or was
// changed is refused.
ASAPSDK_API int CSDKMain_LoadWebSecCache(void* sdkMain, const char* path);

// Writes what the engine has learnt to the file, which is created, or emptied first. 0 on success. Otherwise
// not 0, and the file, if there is one, is not to be used: hand in a path beside the good file, and rename on
// success.
ASAPSDK_API int CSDKMain_SaveWebSecCache(void* sdkMain, const char* path);

ASAPSDK_API void CSDKThread_Attach(void);
ASAPSDK_API void CSDKThread_Detach(void);

// Type and code of the calling thread's last failure; 0 when there was none.
ASAPSDK_API int CSDKException_GetType(void);
ASAPSDK_API int CSDKException_GetErrorCode(void);

// Description of the calling thread's last failure, empty when there was none. The caller ends the string
// with csdkstring_close. Null when there is no memory for it.
ASAPSDK_API void* CSDKException_GetErrorDescription(void);

// The string's text, valid until csdkstring_close; an empty text for null.
ASAPSDK_API const char* csdkstring_getstring(void* text);

// Ends the string. Null: nothing is done.
ASAPSDK_API void csdkstring_close(void* text);

#ifdef __cplusplus
}
#endif

#endif
