// Where katd's socket is.
#ifndef KATC_SOCKETPATH_H
#define KATC_SOCKETPATH_H

#include <string>

namespace katc {

// The socket that the settings in KATD_DIR name or, without that variable, the one of the installed service.
// False if the settings do not name one: *problem is a sentence without its full stop.
bool findSocket(std::string* path, std::string* problem);

// The sentence, without its full stop, for a status of katclient_open() that is not KATCLIENT_OK.
std::string openProblem(int status, const std::string& path);

}  // namespace katc

#endif
