/* Asks katd, the daemon that tells which content categories a URL belongs to.
 *
 * A katclient is one connection to the daemon's socket, made when it is first needed and made again when the daemon
 * closed it (a restart of the daemon, say). A question that a lost connection left without an answer is asked once
 * more over the new one, a control request likewise; and a third time when the daemon ended before it read it.
 *
 * Threads: a katclient is for one thread at a time; different ones are independent of each other. There is no global
 * state, no signal is raised (a closed connection gives no SIGPIPE), and the descriptor is closed by exec. After
 * fork(2), one of the two processes alone may go on using it, the other calling nothing but katclient_close. Waits
 * go on after a signal. Memory is allocated by katclient_open alone, some 35 KB. Nothing is written anywhere.
 *
 * A function that returns int returns KATCLIENT_OK or another value of enum katclient_status; katclient_message then
 * has a sentence for the user. Pointers are not null unless it is said.
 */
#ifndef KATCLIENT_H
#define KATCLIENT_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct katclient katclient;

enum katclient_status {
    KATCLIENT_OK = 0,
    KATCLIENT_NO_DAEMON = 1,    /* no connection: nobody listens on the socket, or it may not be reached */
    KATCLIENT_CLOSED = 2,       /* the daemon closed the connection instead of answering; its log says why */
    KATCLIENT_TIMED_OUT = 3,    /* no answer within the time limit */
    KATCLIENT_BAD_REPLY = 4,    /* what answers is not katd */
    KATCLIENT_BAD_ARGUMENT = 5, /* a URL that is null, empty, beyond 16 MiB or has a zero byte; a path of 0 or more
                                   than 107 bytes */
    KATCLIENT_NO_MEMORY = 6
};

enum { KATCLIENT_MAX_CATEGORIES = 256 };

/* Flags of a question. */
enum {
    KATCLIENT_RETRY = 1 /* while the engine does not know the URL yet, katd asks it again, as its settings say */
};

typedef struct katclient_answer {
    int status;      /* KATCLIENT_OK, or why there is no answer; known and count are 0 then */
    int known;       /* 1: the categories are certain (none: the URL has none); 0: no certain answer now */
    unsigned count;  /* category numbers, 0 to KATCLIENT_MAX_CATEGORIES */
    uint8_t categories[KATCLIENT_MAX_CATEGORIES]; /* the first count are set */
} katclient_answer;

/* Makes a client for the socket at that path, and connects to nothing yet. *client is the caller's, to be given to
 * katclient_close; it is null when this fails (KATCLIENT_BAD_ARGUMENT, KATCLIENT_NO_MEMORY). */
int katclient_open(const char *socket_path, katclient **client);

/* Closes the connection and frees the client. Null is allowed. */
void katclient_close(katclient *client);

/* Time limits in milliseconds, from the next call on.
 * connect_ms: how long to go on trying while nobody listens; 0, as after katclient_open: one attempt. A daemon that
 * listens, but has no time to accept, is waited for as for an answer.
 * answer_ms: how long to wait for one answer; 0, as after katclient_open: for ever. katd's own limit is its setting
 * ctengine_query_timeout, and longer with KATCLIENT_RETRY. After this limit the connection is closed. */
void katclient_set_limits(katclient *client, unsigned connect_ms, unsigned answer_ms);

/* Connects unless there is a connection. Not needed before a question; it tells early that nobody listens. */
int katclient_connect(katclient *client);

/* Asks for one URL, a text with a zero byte at its end. Returns answer->status. */
int katclient_ask(katclient *client, const char *url, unsigned flags, katclient_answer *answer);

/* Asks for count URLs, sending ahead: several requests are under way at once and are answered in order. urls[i] has
 * lengths[i] bytes; lengths may be null: each url then ends with a zero byte. Every answers[i].status is set. Returns
 * KATCLIENT_OK when all are, else the first status that is not. When a question is refused or too late, the others are
 * still asked, over a new connection; when no connection can be made, the rest has KATCLIENT_NO_DAEMON. The time limit
 * is for each answer: it begins anew with every one that came. urls may be null when count is 0. */
int katclient_ask_many(katclient *client, const char *const *urls, const size_t *lengths, size_t count, unsigned flags,
                       katclient_answer *answers);

/* Control requests. KATCLIENT_OK says that katd took the request; what came of it stands in katd's log. Whoever may
 * ask may control. */
enum katclient_level {
    KATCLIENT_LEVEL_INFO = 0,
    KATCLIENT_LEVEL_ERROR = 1,
    KATCLIENT_LEVEL_WARNING = 2,
    KATCLIENT_LEVEL_DEBUG = 3
};
int katclient_log_level(katclient *client, enum katclient_level level);
/* How often an unknown URL is asked again for KATCLIENT_RETRY, and after which pause in milliseconds; 0 milliseconds
 * end all further changes until katd starts anew. */
int katclient_retry_times(katclient *client, uint32_t times, uint32_t interval_ms);
int katclient_save_cache(katclient *client);
int katclient_urls_stat(katclient *client);
int katclient_reload(katclient *client);

/* What went wrong in the last call that did not return KATCLIENT_OK, and what to do: one sentence without its end,
 * about the status that was returned. Valid until the next call with this client; never null, empty when nothing
 * did. */
const char *katclient_message(const katclient *client);

/* The same for any status, without what only the call at hand can tell; empty for KATCLIENT_OK. For the answers of
 * katclient_ask_many, and for katclient_open, which leaves no client to ask. */
const char *katclient_status_text(int status);

/* The version of the library, "1.1.0.0" or the like. */
const char *katclient_version(void);

#ifdef __cplusplus
}
#endif

#endif
