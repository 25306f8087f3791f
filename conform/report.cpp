#include "conform/report.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <pugixml.hpp>

namespace conform {

namespace {

std::size_t count(const std::vector<Result> &results, ky_conform_outcome_t outcome)
{
    return static_cast<std::size_t>(
        std::count_if(results.begin(), results.end(), [=](const Result &result) { return result.outcome == outcome; }));
}

/// What was found, as names and values.
std::array<std::pair<const char *, std::string>, 4> finding(const Result &result)
{
    return {{{"called", result.called},
             {"answered", result.answered},
             {"expected", result.expected},
             {"so the module", result.consequence}}};
}

/// Each line of a text behind an indentation.
std::string indented(const std::string &text, std::string_view by)
{
    std::string lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines += fmt::format("{}{}\n", by, line);
    return lines;
}

std::string details(const Result &result)
{
    std::string lines;
    for (const auto &[name, value] : finding(result))
        lines += fmt::format("      {:<14} {}\n", std::string(name) + ":", value);
    if (!result.output.empty())
        lines += "      its output ended with\n" + indented(result.output, "        | ");
    return lines;
}

/// A text in the double quotes of YAML.
std::string quoted(const std::string &text)
{
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\')
            quoted += '\\';
        quoted += character;
    }
    return quoted + '"';
}

} // namespace

Result::Result(const ky_conform_result_t &of)
    : id(of.id), purpose(of.purpose), called(of.called), answered(of.answered), expected(of.expected),
      consequence(of.consequence), remark(of.remark), output(of.output), outcome(of.outcome), seconds(of.seconds)
{
}

std::string as_text(const Result &result)
{
    const std::string remark = result.remark.empty() ? "" : fmt::format(" ({})", result.remark);
    switch (result.outcome) {
    case KY_CONFORM_HOLDS:
        return fmt::format("ok    {:<24} {}{}\n", result.id, result.purpose, remark);
    case KY_CONFORM_NOT_RUN:
        return fmt::format("-     {:<24} not run: {}\n", result.id, result.remark);
    case KY_CONFORM_FAILS:
        break;
    }
    return fmt::format("FAIL  {:<24} {}\n{}", result.id, result.purpose, details(result));
}

std::string summary(const std::vector<Result> &results)
{
    return fmt::format("{} checks: {} hold, {} do not, {} not run\n", results.size(), count(results, KY_CONFORM_HOLDS),
                       count(results, KY_CONFORM_FAILS), count(results, KY_CONFORM_NOT_RUN));
}

std::string as_tap(const std::vector<Result> &results)
{
    std::string lines = fmt::format("TAP version 14\n1..{}\n", results.size());
    for (std::size_t i = 0; i < results.size(); ++i) {
        const Result &result = results[i];
        const bool fails = result.outcome == KY_CONFORM_FAILS;
        const std::string skipped =
            result.outcome == KY_CONFORM_NOT_RUN ? fmt::format(" # SKIP {}", result.remark) : "";
        lines += fmt::format("{} {} - {}{}\n", fails ? "not ok" : "ok", i + 1, result.id, skipped);
        if (!fails)
            continue;
        lines += fmt::format("  ---\n  purpose: {}\n", quoted(result.purpose));
        for (const auto &[name, value] : finding(result))
            lines += fmt::format("  {}: {}\n", name, quoted(value));
        if (!result.output.empty())
            lines += "  output: |\n" + indented(result.output, "    ");
        lines += "  ...\n";
    }
    return lines;
}

std::string as_junit(const std::vector<Result> &results)
{
    pugi::xml_document document;
    pugi::xml_node suite = document.append_child("testsuite");
    suite.append_attribute("name") = "kybridge-conform";
    suite.append_attribute("tests") = static_cast<unsigned long long>(results.size());
    suite.append_attribute("failures") = static_cast<unsigned long long>(count(results, KY_CONFORM_FAILS));
    suite.append_attribute("skipped") = static_cast<unsigned long long>(count(results, KY_CONFORM_NOT_RUN));
    for (const Result &result : results) {
        pugi::xml_node test = suite.append_child("testcase");
        test.append_attribute("classname") = result.id.substr(0, result.id.find('.')).c_str();
        test.append_attribute("name") = result.id.c_str();
        test.append_attribute("time") = fmt::format("{:.3f}", result.seconds).c_str();
        if (result.outcome == KY_CONFORM_NOT_RUN)
            test.append_child("skipped").append_attribute("message") = result.remark.c_str();
        if (result.outcome != KY_CONFORM_FAILS)
            continue;
        pugi::xml_node failure = test.append_child("failure");
        failure.append_attribute("message") = result.purpose.c_str();
        failure.text() = details(result).c_str();
    }
    std::ostringstream text;
    document.save(text, "  ");
    return text.str();
}

} // namespace conform
