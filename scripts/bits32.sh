# How 32-bit programs run on this machine. To be sourced by bash.
# shellcheck shell=bash
#
#   kernel_runs_32_bits   status 0 if the kernel itself runs them
#   find_run32            sets $run32 to
#                           native  the kernel runs 32-bit programs
#                           qemu    qemu-user runs them; programs that they start run as well if $run32_nested is "yes"
#                           none    nothing runs them
#                         Installs qemu-user-static when it is needed, and registers it with the kernel's binfmt_misc
#                         until the script ends, where that is permitted.
#   ctest_options32       sets the array $options32 to ctest's options that leave out what cannot run in that way
#
# The environment variable KATD_RUN32 (native, qemu or none) replaces the answer of find_run32. "qemu" on a kernel that
# runs 32-bit programs makes all of them on this machine run by qemu until the script ends.

# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# The tests that qemu-user cannot run, as names of test programs (ctest's labels) or regular expressions for tests:
# - katd's threads are counted in /proc, where qemu's own thread is one of them; memory of qemu's code cache grows;
qemu_lacks_programs=(fault_tests)
qemu_lacks_tests=(
    soak_short
    # posix_spawn reports no error of exec, so katd does not start a program without #! by the shell
    'Outages/Unavailable\.IsReportedAfterADelay/.*'
    'Host\.SystemLogProgramGetsTheEventAsOneWordAndFreshSignals'
    # a timer's signals every millisecond: a thread made under them aborts
    'SocketPair\.SignalsInterruptNeitherReadingNorWriting'
    'KatclientTest\.NeitherSideWaitsForTheOther'
    # with a store or many runs of katcatalog, not over in a minute
    'PushTest\..*'
    'SyncTest\..*'
)
# What starts 32-bit programs itself.
nested_programs=(process_tests fault_tests client_tests katclient_tests katlist_tests katcatalog_tests)
nested_tests=(demo pages)

binfmt=/proc/sys/fs/binfmt_misc
qemu32=/usr/bin/qemu-i386-static

# The probe ends with 10 where the limit of its address space holds, and with 11 where it is emulated.
make_probe32() {
    local folder=$source_tree/build/probe32
    probe32=$folder/probe
    [[ ! -x $probe32 ]] || return 0
    mkdir -p "$folder"
    cat > "$folder/probe.cpp" << 'END'
#include <sys/mman.h>
#include <sys/resource.h>

int main(int argc, char**) {
    const rlimit limit{64U << 20U, 64U << 20U};
    setrlimit(RLIMIT_AS, &limit);
    if (argc != 1) return 12;
    return mmap(nullptr, 128U << 20U, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) == MAP_FAILED ? 10 : 11;
}
END
    quietly "$folder/log" g++ -m32 -o "$probe32" "$folder/probe.cpp" ||
        fail "the compiler cannot build for 32 bits: install the Debian package g++-multilib"
}

# probe_ends_with STATUS COMMAND...
probe_ends_with() {
    local status=0
    "${@:2}" > /dev/null 2>&1 || status=$?
    ((status == $1))
}

kernel_runs_32_bits() { make_probe32 && probe_ends_with 10 "$probe32"; }

# shellcheck disable=SC2016 # the inner shell expands them
set_binfmt() { as_root sh -c 'printf "%s" "$2" > "$1"' sh "$binfmt/$1" "$2" 2> /dev/null; }

unregister_qemu() { [[ ! -e $binfmt/$1 ]] || set_binfmt "$1" -1; }

# By the magic of an ELF program for i386. P: argv[0] is kept; F: it works in a chroot that has no qemu.
register_qemu() {
    local name=katd-i386-$$ magic mask
    [[ -e $binfmt/register ]] || as_root mount -t binfmt_misc none "$binfmt" 2> /dev/null || return 1
    magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00'
    mask='\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
    at_exit unregister_qemu "$name"
    set_binfmt register ":$name:M::$magic:$mask:$qemu32:PF" && probe_ends_with 11 "$probe32"
}

find_run32() {
    local entry
    run32=${KATD_RUN32:-}
    run32_nested=
    make_probe32
    # A script that was killed could not unregister it.
    for entry in "$binfmt"/katd-i386-*; do
        [[ ! -e $entry || -d /proc/${entry##*-} ]] || unregister_qemu "${entry##*/}"
    done
    case $run32 in
        native | none) return ;;
        '')
            if probe_ends_with 10 "$probe32"; then
                run32=native
                return
            fi
            ;;
        qemu) ;;
        *) fail "KATD_RUN32 is native, qemu or none" ;;
    esac
    run32=qemu
    if probe_ends_with 11 "$probe32"; then
        run32_nested=yes
    elif ! "$source_tree/scripts/packages.sh" qemu-user-static || ! probe_ends_with 11 "$qemu32" "$probe32"; then
        run32=none
    elif register_qemu; then
        run32_nested=yes
    else
        unregister_qemu "katd-i386-$$"
    fi
}

# any_of EXPRESSION...: one regular expression
any_of() {
    local IFS='|'
    printf '^(%s)$' "$*"
}

# shellcheck disable=SC2034 # the caller reads options32
ctest_options32() {
    local programs=("${qemu_lacks_programs[@]}") tests=("${qemu_lacks_tests[@]}")
    options32=()
    [[ $run32 == qemu ]] || return 0
    if [[ -z $run32_nested ]]; then
        programs+=("${nested_programs[@]}")
        tests+=("${nested_tests[@]}")
    fi
    options32=(--label-exclude "$(any_of "${programs[@]}")" --exclude-regex "$(any_of "${tests[@]}")")
}
