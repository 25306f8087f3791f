/// Where what commands say goes: to whoever gave the command.
#ifndef KYBRIDGE_HOST_OUTPUT_H
#define KYBRIDGE_HOST_OUTPUT_H

#include <string>
#include <string_view>

#include "host/output/outlet.h"
#include "host/output/tables.h"

namespace host {

class Output {
public:
    Output() = default;
    virtual ~Output() = default;
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    virtual void print(std::string_view text) = 0;      ///< an answer, with its line ends
    virtual void complain(const std::string &text) = 0; ///< what went wrong, without line end
    virtual void show(const Table &screen) = 0;
};

/// As a person reads it.
class TextOutput final : public Output {
public:
    /// @param complaints may be the same
    /// @param json screens come out as JSON
    TextOutput(Outlet &answers, Outlet &complaints, bool json = false)
        : answers_(answers), complaints_(complaints), json_(json)
    {
    }

    void print(std::string_view text) override { answers_.write(text); }
    void complain(const std::string &text) override;
    void show(const Table &screen) override;

private:
    Outlet &answers_;
    Outlet &complaints_;
    bool json_;
};

} // namespace host

#endif
