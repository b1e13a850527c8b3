# shellcheck shell=bash
# Sourced by the scripts, from the checkout's folder.

# CMake and CTest run as many jobs as the machine has processors, unless the caller has said.
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}
export CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL:-$(nproc)}

# Prints the comment at the top of the calling script.
usage() {
    awk 'NR == 1 { next } !/^#/ { exit } { sub(/^# ?/, ""); print }' "scripts/${0##*/}"
}

# wrong TEXT: says what is wrong with the command line, in one line: the whole usage after it would
# let it scroll away.
wrong() {
    printf 'scripts/%s: %s; see --help\n' "${0##*/}" "$1" >&2
    exit 2
}

# no_options [ARGUMENT...]: prints the usage for -h and --help and refuses every other option.
no_options() {
    local argument
    for argument; do
        case $argument in
            -h | --help) usage; exit 0 ;;
            -*) wrong "unknown option: $argument" ;;
        esac
    done
}

# is_preset NAME: whether CMakePresets.json has it, to be built here.
is_preset() {
    case $1 in
        release | debug | asan | tsan | clang | windows) return 0 ;;
        *) return 1 ;;
    esac
}
