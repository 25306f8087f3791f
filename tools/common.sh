# What tools/demo and tools/test share. Sourced by bash, which has set -euo pipefail.

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

export CMAKE_GENERATOR=Ninja
if command -v ccache >/dev/null; then
    export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi

# quietly LOGFILE COMMAND...: keeps the command's output in a file and shows it only when it fails.
quietly()
{
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    "$@" >"$log" 2>&1 || {
        cat "$log" >&2
        return 1
    }
}

# configure DIR [CMAKE-ARGUMENT...]
configure()
{
    local dir=$1
    shift
    quietly "$top/$dir/configure.log" cmake -S "$top" -B "$top/$dir" "$@"
}

# What runs under sanitizers and what fuzzes are one build: most of both is the same code.
configure_sanitized()
{
    CC=clang-14 CXX=clang++-14 configure build-asan -DKYBRIDGE_SANITIZE=address,undefined -DKYBRIDGE_TESTS=ON \
        -DKYBRIDGE_FUZZ=ON
}

# build DIR [CMAKE-ARGUMENT...]
build()
{
    local dir=$1
    shift
    quietly "$top/$dir/build.log" cmake --build "$top/$dir" --parallel "$(nproc)" "$@"
}
