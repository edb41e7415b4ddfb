# Compiler settings of all targets.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()
# Assertions stay active in production: no build type defines NDEBUG.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g")
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g")
set(CMAKE_CXX_FLAGS_MINSIZEREL "-Os -g")
set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g -fno-omit-frame-pointer")

if(KATD_32BIT)
    add_compile_options(-m32)
    add_link_options(-m32)
    set(CMAKE_REQUIRED_FLAGS -m32)
    include(CheckCXXSourceCompiles)
    check_cxx_source_compiles("#include <string>\nint main() { return std::string().size() != 0; }" KATD_M32_WORKS)
    unset(CMAKE_REQUIRED_FLAGS)
    if(NOT KATD_M32_WORKS)
        unset(KATD_M32_WORKS CACHE)  # so that it is tried again after the package is installed
        message(FATAL_ERROR "The compiler cannot build for 32 bits: install the Debian package g++-multilib.")
    endif()
endif()

# Files larger than 2 GiB and times after 2038 on 32 bits too.
add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
# File names in assertions and sanitizer reports are relative to the source tree.
add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)

find_package(Threads REQUIRED)

if(KATD_SANITIZE)
    # Line numbers suffice for reports, and the compiler is a tenth faster.
    add_compile_options(-fsanitize=${KATD_SANITIZE} -fno-sanitize-recover=all -g1)
    add_link_options(-fsanitize=${KATD_SANITIZE})
endif()

if(KATD_LTO)
    include(CheckIPOSupported)
    check_ipo_supported(LANGUAGES CXX)
endif()

if(KATD_HARDEN)
    include(CheckPIESupported)
    check_pie_supported()
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong -fstack-clash-protection)
    add_link_options(-Wl,-z,relro,-z,now)
endif()

# katd_optimise_whole(TARGET...): link-time optimisation. The code of a query is spread over a dozen sources; with LTO
# katd answers 4 to 5 % more requests (bench.sh wire). The libraries also keep ordinary object code, so that the tests
# link quickly.
function(katd_optimise_whole)
    if(NOT KATD_LTO)
        return()
    endif()
    set_target_properties(${ARGN} PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        foreach(target IN LISTS ARGN)
            target_compile_options(${target} PRIVATE -ffat-lto-objects)
        endforeach()
    endif()
endfunction()

# katd_compile_fast(TARGET...): for programs whose templates take the compiler long. With the address sanitizer they are
# not optimised, which halves that time; the thread sanitizer's tests would lose as much as the compiler gains.
function(katd_compile_fast)
    if(KATD_SANITIZE MATCHES "^address")
        foreach(target IN LISTS ARGN)
            target_compile_options(${target} PRIVATE -O0 -U_FORTIFY_SOURCE)
        endforeach()
    endif()
endfunction()

# Warnings for katd's own code, not for that of packages.
add_library(katd_warnings INTERFACE)
target_compile_options(katd_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Werror
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
# Sources that are compiled together have more names in common than they should.
if(CMAKE_UNITY_BUILD)
    target_compile_options(katd_warnings INTERFACE
        -Wno-shadow -Wno-unused-function $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endif()
