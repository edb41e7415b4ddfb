#include "Fail.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

namespace bench {

void fail(const char* format, ...) {
    fprintf(stderr, "%s: ", program_invocation_short_name);
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    fputc('\n', stderr);
    exit(1);
}

}  // namespace bench
