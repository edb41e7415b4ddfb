/* A client of katd, the daemon that knows the content categories of URLs.
 *
 * A katclient is one connection to the daemon's socket. It is made when it is first needed, and again after
 * the daemon closed it, for example in a restart. A question without an answer, or a control request without
 * a reply, is then sent once more; and a third time if the daemon ended before it had read it.
 *
 * Threads: a katclient is not thread-safe; different ones are independent. There is no global state, no
 * SIGPIPE is raised, and the descriptor is close-on-exec. After fork(2) only one of the two processes may go
 * on using a katclient; the other may call katclient_close. Waits continue after a signal. Only
 * katclient_open allocates memory, about 35 KB. Nothing is written to any file or stream.
 *
 * Functions that return int return KATCLIENT_OK or another value of enum katclient_status; katclient_message
 * then returns a sentence for the user. Pointers must not be null unless a comment allows it.
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
    KATCLIENT_NO_DAEMON = 1, /* no connection: no daemon listens on the socket, or access is denied */
    KATCLIENT_CLOSED = 2,    /* the daemon closed the connection instead of answering; see its log */
    KATCLIENT_TIMED_OUT = 3, /* no answer within the time limit; a control request may still be carried out */
    KATCLIENT_BAD_REPLY = 4, /* what answers is not katd */
    KATCLIENT_BAD_ARGUMENT = 5, /* a URL that is null, empty, beyond 16 MiB or contains a zero byte; a path of
                                   0 or more than 107 bytes; an unknown message level */
    KATCLIENT_NO_MEMORY = 6
};

enum { KATCLIENT_MAX_CATEGORIES = 256 };

/* Flags of a question. */
enum {
    KATCLIENT_RETRY = 1 /* katd asks its engine again while that does not know the URL, as its settings say */
};

typedef struct katclient_answer {
    int status;     /* KATCLIENT_OK, or why there is no answer; known and count are 0 then */
    int known;      /* 1: the categories are certain (count 0: the URL has none); 0: no certain answer now */
    unsigned count; /* of category numbers, 0 to KATCLIENT_MAX_CATEGORIES */
    uint8_t categories[KATCLIENT_MAX_CATEGORIES]; /* the first `count` are set */
} katclient_answer;

/* Makes a client for the socket at the path; does not connect yet. The caller owns *client and frees it with
 * katclient_close. On failure (KATCLIENT_BAD_ARGUMENT, KATCLIENT_NO_MEMORY) it is null. */
int katclient_open(const char *socket_path, katclient **client);

/* Closes the connection and frees the client. Null is allowed. */
void katclient_close(katclient *client);

/* Sets time limits in milliseconds for later calls. Both are 0 after katclient_open.
 *
 * connect_ms: how long to try to connect while no daemon listens; 0: one attempt. If a daemon listens, but
 * does not accept, answer_ms applies as well.
 *
 * answer_ms: how long to wait for one answer; 0: without a limit. After that the connection is closed. katd
 * has a limit too, its setting ctengine_query_timeout, which with KATCLIENT_RETRY applies to each attempt. */
void katclient_set_limits(katclient *client, unsigned connect_ms, unsigned answer_ms);

/* Connects unless there is a connection. Optional: it shows early whether a daemon listens. */
int katclient_connect(katclient *client);

/* Asks for one URL, a zero-terminated string. Returns answer->status. */
int katclient_ask(katclient *client, const char *url, unsigned flags, katclient_answer *answer);

/* Asks for `count` URLs with several requests in flight. urls[i] has lengths[i] bytes; lengths may be null,
 * then each URL is zero-terminated. Sets every answers[i].status. Returns KATCLIENT_OK if all are, else the
 * first other status. If a question is refused or its answer too late, the others are still asked, over a new
 * connection; if no connection can be made, the remaining ones get KATCLIENT_NO_DAEMON. The time limit
 * applies to each answer and starts when the one before arrived. urls may be null if count is 0. */
int katclient_ask_many(katclient *client, const char *const *urls, const size_t *lengths, size_t count,
                       unsigned flags, katclient_answer *answers);

/* Control requests. KATCLIENT_OK means that katd received the request; it writes the result to its log. After
 * KATCLIENT_TIMED_OUT the request may still be carried out. Every user who may ask may also control. */
enum katclient_level {
    KATCLIENT_LEVEL_INFO = 0,
    KATCLIENT_LEVEL_ERROR = 1,
    KATCLIENT_LEVEL_WARNING = 2,
    KATCLIENT_LEVEL_DEBUG = 3
};
int katclient_log_level(katclient *client, enum katclient_level level);
/* How often katd asks its engine again for KATCLIENT_RETRY, and the pause before that in milliseconds; 0
 * milliseconds prevent further changes until katd is restarted. */
int katclient_retry_times(katclient *client, uint32_t times, uint32_t interval_ms);
int katclient_save_cache(katclient *client);
int katclient_urls_stat(katclient *client);
int katclient_reload(katclient *client);

/* What went wrong in the last call that did not return KATCLIENT_OK, and what to do: one sentence without its
 * full stop about the returned status. Valid until the next call with this client; never null, empty if
 * nothing went wrong. */
const char *katclient_message(const katclient *client);

/* The same for any status, without details of the call; empty for KATCLIENT_OK. For the answers of
 * katclient_ask_many, and for katclient_open, which returns no client on failure. */
const char *katclient_status_text(int status);

/* The version of the library, such as "1.3.0.0". */
const char *katclient_version(void);

#ifdef __cplusplus
}
#endif

#endif
