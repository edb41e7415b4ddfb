// From a URL to its categories.
#ifndef KATD_CLASSIFICATION_H
#define KATD_CLASSIFICATION_H

namespace KATD_SPACE {

class ConnectionBuffer;

enum class Listed { YES, NO, NO_MEMORY };

// Looks the URL up in the local lists. YES: *category is its category. workspace: at least length + 1 bytes,
// which the look-up overwrites, or null: then memory is allocated. NO_MEMORY: it could not be. Thread-safe.
Listed lookUpLists(const char* url, unsigned length, char* workspace, unsigned char* category);

// Asks the engine, with the limit and the retries that the settings give; at most size bytes go to
// categories, their number is returned. *matched: whether the answer is definitive. Retries end when client
// has hung up; what client holds back is sent in time (ConnectionBuffer). Thread-safe for threads that are
// attached to the engine.
unsigned askEngine(const char* url, unsigned char* categories, unsigned size, bool withRetry, bool* matched,
                   ConnectionBuffer& client);

}  // namespace KATD_SPACE

#endif
