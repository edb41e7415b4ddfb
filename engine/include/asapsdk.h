// The fifteen functions of the classification engine's library, libasapsdk.so, that katd calls.
//
// Three libraries have this interface and this soname, and katd cannot tell them apart: a closed engine, the
// catalogue engine and the stand-in. The last two are built here. The catalogue engine answers from a file
// that katcatalog makes: see docs/engine.md. The stand-in answers from a text file of rules, for tests.
//
// Threads: all functions are thread-safe, also with a shared handle. No call blocks another. A thread must
// attach before its first call and detach before it ends; the two engines built here do not depend on it.
//
// Failures: a function that fails stores type, code and description for its thread; CSDKException_* return
// them until the next failure in that thread. Nothing is thrown.
//
// The catalogue engine:
//
//   KATD_DIR           conf/catalog.ini below this folder has its settings, and relative paths begin there
//   KATD_CATALOG_INI   path of the settings, instead
//
// Both are read by CSDKMain_Create. The categories of a URL come in the order of the entries that cover it,
// the most specific one first. A URL that no entry covers has ASAPSDK_FLAG_FINAL. Without a shared store it
// learns nothing. With one, the flag is missing while the store has not answered, and it learns records of
// the store.
//
// The stand-in reads its environment at every call (a program must not change it while other threads make
// calls):
//
//   ASAPSDK_RULES  path of the rules file. It is read again when its inode, size or modification time
//                  changes; sequences then start over. There are no rules without the variable or while the
//                  file cannot be read. Replace the file by renaming another over it: it may be read at any
//                  time.
//   ASAPSDK_TRACE  path of a file to which every call appends one line with one write(2): the function, a
//                  tab, the kernel's thread ID, a tab, the argument or "-", a tab, the result or "-". The
//                  line is written before a delay or a hang begins. Bytes below 0x20, 0x7f and the backslash
//                  are written as \xHH.
//
// Apart from these, only the cache file of CSDKMain_SaveWebSecCache is written, and a line on standard error
// for each invalid rule.
//
// Rules file: one rule per line. Empty lines and comments, which begin with '#', are skipped. A rule is a
// subject and its outcomes, one for each call, separated by the word "then". The last outcome applies to all
// further calls. A URL, text or name that contains blanks is written in double quotes.
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
//   unknown               no category yet: a later query may get some
//   final                 no category, now and later
// Outcomes of create, load and save:
//   ok                    as without a rule
//   partial TYPE CODE "TEXT" (save) fails after half of the file has been written
// Outcomes of both:
//   fail TYPE CODE "TEXT" fails with this type and code (signed decimal numbers) and this description, which
//                         holds no '"'
//   delay MS OUTCOME      the outcome, this many milliseconds later; cannot be repeated
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

// Types of the failures without a rule.
enum {
    ASAPSDK_BAD_ARGUMENT = 1,  // a null handle, text or path
    ASAPSDK_BAD_CACHE = 3,     // cache file not read or written, cut or changed; the code is the errno, or 0
    ASAPSDK_NO_MEMORY = 4,
    ASAPSDK_BAD_CATALOG = 5  // the catalogue or its settings cannot be used
};

// Bit 0 of CSDKUrlCat_GetFlags: the URL has no category, now and later.
enum { ASAPSDK_FLAG_FINAL = 1 };

#ifdef __cplusplus
extern "C" {
#endif

// Creates an engine; null on failure. The connection string has fields NAME=VALUE separated by ';'. The
// stand-in uses WebSecCacheMaxEntries alone, the number of URLs to learn (0, absent or not a number: none).
// The catalogue engine uses it for the records of a shared store, and HttpConnPoolSize for the connections to
// it, 4 if absent. The caller must release the engine with CSDKMain_Close.
ASAPSDK_API void* CSDKMain_Create(const char* connection);

// Releases the engine; what it has learnt is not saved. Null is allowed.
// REQUIRES: no other call with this handle is running or follows.
ASAPSDK_API void CSDKMain_Close(void* sdkMain);

// Classifies a URL; null on failure. The caller must release the answer with CSDKUrlCat_Close. An engine that
// learns keeps the categories; when it is full, it forgets the oldest.
ASAPSDK_API void* CSDKMain_ClassifyUrl(void* sdkMain, const char* url);

// Stores the address and the number of the answer's category numbers; null and 0 for a null answer. The array
// belongs to the answer and may contain zeros. Null out-parameters are skipped.
ASAPSDK_API void CSDKUrlCat_GetCategories(void* urlCat, const unsigned short** categories,
                                          unsigned short* count);

// The answer's flags, see ASAPSDK_FLAG_FINAL; 0 for null.
ASAPSDK_API int CSDKUrlCat_GetFlags(void* urlCat);

// Releases the answer. Null is allowed.
ASAPSDK_API void CSDKUrlCat_Close(void* urlCat);

// Replaces what the engine has learnt by the contents of the file, or by the newest of them if the engine is
// smaller. Returns 0 on success; anything else for a file that cannot be read or is damaged, with nothing
// changed.
ASAPSDK_API int CSDKMain_LoadWebSecCache(void* sdkMain, const char* path);

// Writes what the engine has learnt to the file, which is created or truncated. Returns 0 on success. After
// anything else the file must not be used: pass a temporary path, and rename on success.
ASAPSDK_API int CSDKMain_SaveWebSecCache(void* sdkMain, const char* path);

ASAPSDK_API void CSDKThread_Attach(void);
ASAPSDK_API void CSDKThread_Detach(void);

// Type and code of the calling thread's last failure; 0 if there was none.
ASAPSDK_API int CSDKException_GetType(void);
ASAPSDK_API int CSDKException_GetErrorCode(void);

// Description of the calling thread's last failure, empty if there was none. Null if there is no memory for
// it. The caller must release the string with csdkstring_close.
ASAPSDK_API void* CSDKException_GetErrorDescription(void);

// The string's characters, valid until csdkstring_close; "" for null.
ASAPSDK_API const char* csdkstring_getstring(void* text);

// Releases the string. Null is allowed.
ASAPSDK_API void csdkstring_close(void* text);

#ifdef __cplusplus
}
#endif

#endif
