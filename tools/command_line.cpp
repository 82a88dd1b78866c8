#include "command_line.h"

#include "failure.h"
#include "output.h"

#include <CLI/CLI.hpp>

#include <sstream>

namespace kaldb::tool {

namespace {

/// A minus would turn a count into a very large one.
std::string refuseNegative(const std::string& text) { return text.starts_with('-') ? text + " is no count" : ""; }

}  // namespace

void Verb::argument(const char* name, std::string& value, const char* help)
{
    app_->add_option(name, value, help)->required();
}

void Verb::optionalArgument(const char* name, std::string& value, const char* help)
{
    app_->add_option(name, value, help);
}

void Verb::arguments(const char* name, std::vector<std::string>& values, const char* help)
{
    app_->add_option(name, values, help);
}

void Verb::flag(const char* name, bool& value, const char* help) { app_->add_flag(name, value, help); }

void Verb::option(const char* name, std::string& value, const char* help)
{
    app_->add_option(name, value, help)->capture_default_str();
}

void Verb::option(const char* name, std::uint64_t& value, const char* help)
{
    app_->add_option(name, value, help)->check(refuseNegative);
}

void Verb::list(const char* name, std::vector<std::string>& values, const char* help)
{
    app_->add_option(name, values, help)->delimiter(',')->allow_extra_args(false);
}

void Verb::list(const char* name, std::vector<std::uint64_t>& values, const char* help)
{
    app_->add_option(name, values, help)->delimiter(',')->allow_extra_args(false)->check(refuseNegative);
}

void Verb::words(const char* name, std::vector<std::string>& values, const char* help)
{
    app_->add_option(name, values, help)->expected(1, CLI::detail::expected_max_vector_size);
}

void Verb::chosen(std::function<void()> action) { app_->callback(std::move(action)); }

CommandLine::CommandLine()
    : app_(std::make_unique<CLI::App>("Looks into, checks and fills kaldb database files.", "kaldb"))
{
    app_->require_subcommand(1);
    app_->set_version_flag("--version", KALDB_VERSION);
}

CommandLine::~CommandLine() = default;

Verb CommandLine::verb(const char* name, const char* help) { return Verb{*app_->add_subcommand(name, help)}; }

std::optional<int> CommandLine::parse(int count, char** arguments, Output& out)
{
    try {
        app_->parse(count, arguments);
        return std::nullopt;
    } catch (const CLI::Success& answer) {
        std::ostringstream text;
        const int exit = app_->exit(answer, text);
        out.write(text.str());
        return exit;
    } catch (const CLI::ParseError& error) {
        throw wrongUse(error.what(), "kaldb --help, or kaldb VERB --help");
    }
}

}  // namespace kaldb::tool
