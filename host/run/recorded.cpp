#include "host/run/recorded.h"

#include <algorithm>
#include <sstream>

#include <fmt/format.h>

#include "host/files.h"
#include "record/script.h"
#include "record/show.h"

namespace host {

namespace {

/// What the commands of a recording say is not of interest, only what goes wrong.
class ComplaintsOnly final : public Output {
public:
    explicit ComplaintsOnly(Outlet &complaints) : text_(complaints, complaints) {}

    void print(std::string_view) override {}
    void complain(const std::string &text) override { text_.complain(text); }
    void show(const Table &) override {}

private:
    TextOutput text_;
};

} // namespace

Verdict follow_recording(Host &host, const std::string &file, std::uint64_t until)
{
    try {
        const auto contents = record::read_file(file);
        record::Reader reader(contents);
        std::istringstream script(record::script_of(reader, until));
        ComplaintsOnly output(host.err);
        const Verdict verdict = Interpreter(host, output, Files(), true).run(script, file);
        host.err.finish();
        return record::tell_damages(reader) ? verdict : std::max(verdict, unexpected);
    } catch (const record::RecordingError &error) {
        fmt::print(stderr, "kybridge-host: {}: {}\n", file, error.what());
        return wrong_script;
    }
}

} // namespace host
