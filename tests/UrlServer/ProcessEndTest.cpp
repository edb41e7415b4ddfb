#include <gmock/gmock.h>
#include <unistd.h>

#include "UrlServer/ProcessEnd.h"

TEST(ProcessEnd, TheEarlierEndStays) {
    const int cases[][4] = {{50, 5000, false, 1}, {5000, 50, false, 2}, {50, 200, true, 2}};
    for (const auto& [first, second, isPostponed, status] : cases) {  // milliseconds
        EXPECT_EXIT(
            {
                KATD_SPACE::endWithin(1, first);
                (isPostponed ? KATD_SPACE::postponeEnd : KATD_SPACE::endWithin)(2, second);
                for (;;)
                    pause();
            },
            testing::ExitedWithCode(status), "");
    }
}
