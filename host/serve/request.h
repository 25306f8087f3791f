/// Requests of the protocol, read and checked before anything of them is done.
#ifndef KYBRIDGE_HOST_REQUEST_H
#define KYBRIDGE_HOST_REQUEST_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/language/names.h"
#include "host/language/script.h"
#include "sim/frame.h"

namespace host {

using Json = nlohmann::ordered_json;

inline constexpr unsigned protocol_version = 1;
inline constexpr std::size_t request_bytes_max = std::size_t{16} << 20U; ///< of a line, without its end
inline constexpr std::size_t request_frames_max = 10000;                 ///< of one 'send'

/// A line that is no request. The text tells what is wrong with it.
class RequestError : public std::runtime_error {
public:
    RequestError(const std::string &text, std::string what_was_expected)
        : std::runtime_error(text), expected(std::move(what_was_expected))
    {
    }
    std::string expected; ///< "a string"
};

struct FrameRequest {
    std::uint32_t log_port = 0;
    sim::Bytes frame;
};

struct Hello {};

struct Send {
    std::vector<FrameRequest> frames;
    bool trace = true; ///< whether the answer tells each frame's way in words
};

/// What is asked for: who is there, a command in words, frames.
using Request = std::variant<Hello, Words, Send>;

/// The line as an object. @throws RequestError
Json parse_request(std::string_view line);

/// What came as "id", which the answer repeats; null: nothing. @throws RequestError when it is no string or number
Json request_id(const Json &object);

/// @throws RequestError @throws ScriptError for a line of a script that cannot be cut into words
Request read_request(const Json &object, const Names &names);

} // namespace host

#endif
