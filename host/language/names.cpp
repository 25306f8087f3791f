#include "host/language/names.h"

#include <fmt/format.h>

#include "host/language/script.h"

namespace host {

void NameBook::give(const std::string &name, std::uint32_t number)
{
    forget(number);
    if (const auto held = numbers_.find(name); held != numbers_.end())
        names_.erase(held->second);
    numbers_[name] = number;
    names_[number] = name;
}

void NameBook::forget(std::uint32_t number)
{
    if (const auto named = names_.find(number); named != names_.end()) {
        numbers_.erase(named->second);
        names_.erase(named);
    }
}

void NameBook::clear()
{
    numbers_.clear();
    names_.clear();
}

std::optional<std::uint32_t> NameBook::find(const std::string &name) const
{
    const auto found = numbers_.find(name);
    return found != numbers_.end() ? std::optional(found->second) : std::nullopt;
}

const std::string *NameBook::find(std::uint32_t number) const
{
    const auto found = names_.find(number);
    return found != names_.end() ? &found->second : nullptr;
}

std::vector<std::string> NameBook::all() const
{
    std::vector<std::string> all;
    for (const auto &[name, number] : numbers_)
        all.push_back(name);
    return all;
}

std::string Names::port(std::uint32_t log_port) const
{
    const std::string *name = ports.find(log_port);
    return name != nullptr ? *name : fmt::format("0x{:08X}", log_port);
}

std::string Names::bridge(std::uint16_t bridge_id) const
{
    const std::string *name = bridges.find(bridge_id);
    return name != nullptr ? *name : fmt::to_string(bridge_id);
}

std::string Names::in(std::string text) const
{
    for (std::size_t at = text.find("0x"); at != std::string::npos; at = text.find("0x", at + 1)) {
        const std::string digits = text.substr(at, 10);
        const auto log_port = parse_number(digits);
        const std::string *name = log_port ? ports.find(*log_port) : nullptr;
        if (name != nullptr)
            text.replace(at, digits.size(), *name);
    }
    return text;
}

} // namespace host
