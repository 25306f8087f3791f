// The bytes of a recording, through everything that reads it without a module: shown, counted, and as a script.
#include <cstdint>
#include <span>

#include "record/script.h"
#include "record/show.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::span<const std::uint8_t> contents(data, size);
    try {
        record::Reader counted(contents);
        record::show_stats(counted);
        record::Reader shown(contents);
        record::show(shown, {}, true);
        record::Reader translated(contents);
        record::script_of(translated);
    } catch (const record::RecordingError &) { // NOLINT(bugprone-empty-catch): most bytes are no recording
    }
    return 0;
}
