// Options and arguments, in one place: no verb sees the library that reads them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kaldb::tool {

class Output;

/// What one verb takes. The values bound here must live as long as the command line.
class Verb {
public:
    explicit Verb(CLI::App& app) : app_(&app) {}

    void argument(const char* name, std::string& value, const char* help);
    void optionalArgument(const char* name, std::string& value, const char* help);
    void arguments(const char* name, std::vector<std::string>& values, const char* help);

    void flag(const char* name, bool& value, const char* help);
    void option(const char* name, std::string& value, const char* help);
    void option(const char* name, std::uint64_t& value, const char* help);
    /// Values with commas between them.
    void list(const char* name, std::vector<std::string>& values, const char* help);
    void list(const char* name, std::vector<std::uint64_t>& values, const char* help);
    /// Several words after the option.
    void words(const char* name, std::vector<std::string>& values, const char* help);

    /// Called when the command line names this verb and makes sense.
    void chosen(std::function<void()> action);

private:
    CLI::App* app_;
};

class CommandLine {
public:
    CommandLine();
    ~CommandLine();

    Verb verb(const char* name, const char* help);
    /// Calls what the verb has registered. An exit code when help or the version was asked for and has been written to
    /// `out`; throws a Failure for a command line that makes no sense.
    std::optional<int> parse(int count, char** arguments, Output& out);

private:
    std::unique_ptr<CLI::App> app_;
};

}  // namespace kaldb::tool
