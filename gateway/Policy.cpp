#include "Policy.h"

namespace gateway {

Decision Policy::decide(const katclient_answer& answer) const {
    if (answer.status != KATCLIENT_OK) return {onFailure, -1};
    for (unsigned i = 0; i < answer.count; ++i) {
        if (named[answer.categories[i]])
            return {allows ? Verdict::pass : Verdict::refuse, answer.categories[i]};
    }
    if (answer.known == 0) return {onUnknown, -1};
    // A list of what is allowed refuses everything else; the first category is then the one to name.
    return {allows ? Verdict::refuse : Verdict::pass, answer.count > 0 ? answer.categories[0] : -1};
}

}  // namespace gateway
