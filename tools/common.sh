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

# configure_with_clang DIR [CMAKE-ARGUMENT...]: a dozen sources are compiled as one. What they include takes most of
# the time, and the build in build/ shows already that each of them compiles by itself.
configure_with_clang()
{
    CC=clang-14 CXX=clang++-14 configure "$@" -DKYBRIDGE_TESTS=ON -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=12
}

# What runs under sanitizers and what fuzzes are one build: most of both is the same code.
configure_sanitized()
{
    configure_with_clang build-asan -DKYBRIDGE_SANITIZE=address,undefined -DKYBRIDGE_FUZZ=ON
}

# build DIR [CMAKE-ARGUMENT...]
build()
{
    local dir=$1
    shift
    quietly "$top/$dir/build.log" cmake --build "$top/$dir" --parallel "$(nproc)" "$@"
}
