/// Reads a recording, call by call in the order in which they came from outside. Nothing in a file is trusted: what is
/// damaged ends its lane, and is told.
#ifndef KYBRIDGE_RECORD_READER_H
#define KYBRIDGE_RECORD_READER_H

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "record/format.h"
#include "record/interface.h"

namespace record {

/// A file that is no recording, or cannot be read at all. The text names it and says why.
class RecordingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What was passed for one argument, or written through it.
struct Value {
    bool is_null = false;                 ///< a pointer that is NULL
    std::uint64_t number = 0;             ///< the number, or the one behind the pointer
    std::vector<std::uint8_t> bytes = {}; ///< the record or the array behind the pointer
};

/// The record behind a pointer; all bytes are 0 where there is none.
template <typename Record> Record record_of(const Value &value)
{
    Record record{};
    std::copy_n(value.bytes.begin(), std::min(value.bytes.size(), sizeof record),
                reinterpret_cast<std::uint8_t *>(&record));
    return record;
}

/// One call with everything that happened inside it, or a line of the log.
struct RecordedCall {
    format::Kind kind{};                        ///< function, event, service or log
    std::uint8_t number = 0;                    ///< its place in its table; event: the callback, 0 the first
    const Callable *callable = nullptr;         ///< nullptr: a log line
    std::vector<Value> sent;                    ///< by argument
    std::vector<std::optional<Value>> answered; ///< by argument; without a value where nothing was written
    std::uint64_t answer = 0;                   ///< status, or cl_malloc's address
    bool is_complete = false;                   ///< whether it has an answer; a log line always
    std::uint64_t begin_ns = 0;                 ///< since 1970-01-01 UTC
    std::uint64_t end_ns = 0;
    std::vector<RecordedCall> inner; ///< calls and log lines inside it, in their order

    // Of a call from outside only.
    std::uint64_t id = 0;     ///< 1 for the first of the recording
    std::uint64_t thread = 0; ///< 1 for the first that called
    std::uint64_t bytes = 0;  ///< that it takes in the recording, with everything inside it
    bool others_inside = false;
    bool swid_validated = false;
    std::optional<rm_resource_t> limits; ///< where they were new

    // Of a log line only.
    std::uint32_t severity = 0;
    std::string module;
    std::string text;

    bool is_refused() const { return is_complete && kind != format::Kind::log && !is_query_of_router() && failed(); }
    bool is(Service service) const
    {
        return kind == format::Kind::service && number == static_cast<std::uint8_t>(service);
    }
    bool is(Function function) const
    {
        return kind == format::Kind::function && number == static_cast<std::uint8_t>(function);
    }

private:
    bool is_query_of_router() const { return is(Service::port_db_check_port_mode_router_port); } ///< 0 means yes
    bool failed() const { return is(Service::cl_malloc) ? answer == 0 : answer != 0; }
};

class Reader {
public:
    /// @param contents of the file; they outlive the reader  @throws RecordingError
    explicit Reader(std::span<const std::uint8_t> contents);

    const format::Header &header() const { return header_; }

    /// The next complete call from outside; nothing when there is none any more.
    std::optional<RecordedCall> next();

    /// After the last call: those that have no answer, because the process ended inside them or the file was full.
    const std::vector<RecordedCall> &unfinished() const { return unfinished_; }
    /// After the last call: what is damaged, one line each.
    const std::vector<std::string> &damages() const { return damages_; }

private:
    struct Lane {
        std::vector<std::size_t> chunks; ///< where they begin
        std::size_t chunk = 0;           ///< index of the current one
        std::size_t at = 0;              ///< of the next record in the file
        std::uint64_t ticks = 0;
        std::uint64_t bytes = 0;           ///< of its records so far
        std::optional<RecordedCall> ahead; ///< its next complete call
    };
    struct Record;
    class Cursor;

    std::optional<Record> next_record(Lane &lane) const;
    void read_ahead(Lane &lane);
    bool read_inner(Lane &lane, RecordedCall &call, unsigned depth) const;
    RecordedCall begin_call(const Record &record, bool from_outside) const;
    void end_call(const Record &record, RecordedCall &call) const;
    std::uint64_t time_of(std::uint64_t ticks) const;

    std::span<const std::uint8_t> contents_;
    format::Header header_{};
    std::vector<Lane> lanes_;
    std::vector<RecordedCall> unfinished_;
    std::vector<std::string> damages_;
};

/// A whole file. @throws RecordingError
std::vector<std::uint8_t> read_file(const std::string &name);

/// The header of a file alone. @throws RecordingError
format::Header read_header(const std::string &name);

} // namespace record

#endif
