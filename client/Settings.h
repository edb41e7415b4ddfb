// Where katd's socket is, as katd's settings have it.
#ifndef KATC_SETTINGS_H
#define KATC_SETTINGS_H

#include <string>

namespace katc {

// The socket that the settings below KATD_DIR name. False, with a sentence on standard error, when they do
// not.
bool socketFromSettings(std::string* path);

}  // namespace katc

#endif
