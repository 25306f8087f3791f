#include "host/serve/request.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "host/language/grammar.h"

namespace host {

namespace {

const std::string request_forms = R"(an object with one of "hello", "do" and "send")";

constexpr std::size_t excerpt_bytes = 40;

/// A value as an error names it, in one short line.
std::string excerpt(const Json &value)
{
    std::string text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
    if (text.size() > excerpt_bytes)
        text = text.substr(0, excerpt_bytes) + "...";
    return text;
}

RequestError wrong(const std::string &member, const Json &value, const std::string &expected)
{
    return {fmt::format("\"{}\" is {}", member, excerpt(value)), expected};
}

/// @throws RequestError for a member that there is not, with the nearest one
void check_members(const Json &object, std::span<const std::string> known)
{
    for (const auto &[member, value] : object.items())
        if (std::ranges::find(known, member) == known.end())
            throw RequestError(fmt::format("there is no member {}{}", excerpt(member), did_you_mean(member, known)),
                               fmt::format("one of {}", fmt::join(known, ", ")));
}

/// The words of a command, given as a line of a script or one by one.
Words read_words(const Json &command)
{
    Words words;
    if (command.is_string()) {
        words = parse_line(command.get_ref<const std::string &>());
    } else if (command.is_array() && std::ranges::all_of(command, [](const Json &word) { return word.is_string(); })) {
        words = command.get<Words>();
        for (const std::string &word : words)
            if (std::ranges::any_of(word, [](unsigned char c) { return c < ' ' && c != '\t'; }))
                throw wrong("do", word, "words without control characters");
    } else {
        throw wrong("do", command, "a line of a script, or a list of its words");
    }
    if (words.empty())
        throw wrong("do", command, "a command");
    return words;
}

FrameRequest read_frame(const Json &entry, const Names &names)
{
    static const std::array<std::string, 2> members = {"port", "frame"};
    static const Grammar port("PORT");
    if (!entry.is_object() || !entry.contains("port") || !entry.contains("frame"))
        throw wrong("send", entry, R"(a list of objects, each with "port" and "frame")");
    check_members(entry, members);

    FrameRequest request;
    const Json &where = entry["port"];
    if (where.is_number_unsigned() && where.get<std::uint64_t>() <= UINT32_MAX)
        request.log_port = where.get<std::uint32_t>();
    else if (where.is_string())
        request.log_port = port.read(std::array{where.get<std::string>()}, &names).number("PORT");
    else
        throw wrong("port", where, "the name of a port, or its number");

    const Json &digits = entry["frame"];
    auto bytes = digits.is_string() ? sim::parse_hex(digits.get_ref<const std::string &>()) : std::nullopt;
    if (!bytes)
        throw wrong("frame", digits, "its bytes, two hexadecimal digits each");
    request.frame = std::move(*bytes);
    return request;
}

Send read_send(const Json &object, const Names &names)
{
    const Json &entries = object["send"];
    if (!entries.is_array())
        throw wrong("send", entries, R"(a list of objects, each with "port" and "frame")");
    if (entries.size() > request_frames_max)
        throw RequestError(fmt::format("\"send\" has {} frames", entries.size()),
                           fmt::format("at most {} in one request", request_frames_max));
    Send send;
    if (object.contains("trace")) {
        if (!object["trace"].is_boolean())
            throw wrong("trace", object["trace"], "true or false");
        send.trace = object["trace"].get<bool>();
    }
    for (const Json &entry : entries)
        send.frames.push_back(read_frame(entry, names));
    return send;
}

} // namespace

Json parse_request(std::string_view line)
{
    try {
        Json object = Json::parse(line);
        if (!object.is_object())
            throw RequestError(fmt::format("the line is {}", excerpt(object)), request_forms);
        return object;
    } catch (const Json::parse_error &error) {
        throw RequestError(fmt::format("the line is no JSON: it goes wrong at byte {}", error.byte), request_forms);
    } catch (const Json::out_of_range &) {
        throw RequestError("the line has a number that is too large", "numbers that a double can hold");
    }
}

Json request_id(const Json &object)
{
    const auto id = object.find("id");
    if (id == object.end())
        return nullptr;
    if (!id->is_string() && !id->is_number_integer())
        throw wrong("id", *id, "a string or an integer");
    return *id;
}

Request read_request(const Json &object, const Names &names)
{
    static const std::array<std::string, 5> members = {"hello", "do", "send", "trace", "id"};
    check_members(object, members);
    if (object.contains("hello") + object.contains("do") + object.contains("send") != 1)
        throw RequestError("the line asks for nothing, or for several things", request_forms);
    if (object.contains("trace") && !object.contains("send"))
        throw RequestError("\"trace\" says how to answer \"send\", which is missing", request_forms);

    if (object.contains("do"))
        return read_words(object["do"]);
    if (object.contains("send"))
        return read_send(object, names);
    if (object["hello"] != protocol_version)
        throw wrong("hello", object["hello"], fmt::format("the version of this protocol, {}", protocol_version));
    return Hello{};
}

} // namespace host
