/// The services' side of the journal. Every service runs its body through `serve` or `serve_record`, which
/// number and journal the call, let a planned fault answer in the body's stead and tell `Device::on_call`.
/// While the journal keeps nothing and nobody listens, none of this allocates or copies.
#ifndef KYBRIDGE_SDK_RECORDER_H
#define KYBRIDGE_SDK_RECORDER_H

#include <cstring>
#include <initializer_list>
#include <span>
#include <type_traits>

#include <fmt/format.h>

#include "sdk/sdk.h"

namespace sdk {

using Bytes = std::span<const std::uint8_t>;

/// The bytes of `count` records as they lie in memory.
template <typename Record> Bytes bytes_of(const Record *records, std::size_t count = 1)
{
    return {reinterpret_cast<const std::uint8_t *>(records), count * sizeof(Record)};
}

/// One call while it runs.
class Recorder {
public:
    /// @param arguments the numbers passed  @param record what the caller passed by address; outlives the call
    Recorder(Service service, std::initializer_list<std::uint64_t> arguments, Bytes record);
    Recorder(const Recorder &) = delete;
    Recorder &operator=(const Recorder &) = delete;

    /// Answers the call: by the fault that was planned for it, else by the body.
    template <typename Body> ky_status_t answer(Body &&body)
    {
        const ky_status_t status = fault_ ? *fault_ : body(*this);
        finish(status);
        return status;
    }

    std::uint64_t number() const { return number_; }
    void set_result(std::uint64_t result) { result_ = result; }

    /// Reports a call that is a bug of its caller. @return `status`, to answer it with
    template <typename... Arguments>
    ky_status_t refuse(ky_status_t status, fmt::format_string<Arguments...> text, Arguments &&...arguments)
    {
        report(fmt::format(text, std::forward<Arguments>(arguments)...));
        return status;
    }
    ky_status_t refuse_cmd(ky_access_cmd_t cmd)
    {
        return refuse(KY_STATUS_CMD_UNSUPPORTED, "cmd {} is not taken", cmd);
    }

    /// Compares a record byte by byte with what it has to be, and reports the first difference.
    template <typename Record> bool same(const Record &sent, const Record &expected)
    {
        static_assert(std::has_unique_object_representations_v<Record>, "padding cannot be compared");
        if (std::memcmp(&sent, &expected, sizeof(Record)) == 0)
            return true;
        report_difference(bytes_of(&sent), bytes_of(&expected));
        return false;
    }

private:
    void report(const std::string &text) const;
    void report_difference(Bytes sent, Bytes expected) const;
    void finish(ky_status_t status);

    Service service_;
    unsigned depth_;
    std::uint64_t number_;
    std::uint64_t result_ = 0;
    std::optional<ky_status_t> fault_;
    Bytes record_;
    std::optional<Call> call_; ///< only while somebody wants it
};

/// Serves a call whose arguments are plain numbers and places for results.
template <typename Body> ky_status_t serve(Service service, std::initializer_list<std::uint64_t> arguments, Body &&body)
{
    return Recorder(service, arguments, {}).answer(std::forward<Body>(body));
}

/// Serves a call that passes a record by address; the body gets it as a reference.
/// @param size bytes of the record, with the list behind it if it has one
template <typename Record, typename Body>
ky_status_t serve_record(Service service, std::initializer_list<std::uint64_t> arguments, Record *record, Body &&body,
                         std::size_t size = sizeof(Record))
{
    const Bytes bytes = record != nullptr ? Bytes(reinterpret_cast<const std::uint8_t *>(record), size) : Bytes();
    return Recorder(service, arguments, bytes).answer([&](Recorder &call) {
        return record != nullptr ? body(call, *record) : call.refuse(KY_STATUS_PARAM_NULL, "the record is NULL");
    });
}

} // namespace sdk

#endif
