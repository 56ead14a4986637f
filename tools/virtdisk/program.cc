#include "program.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands/arguments.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/output_watch.h"
#include "terminal/suggestion.h"
#include "terminal/wrapping.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr char kExitStatuses[] =
    "Exit status: 0 done, 1 failed, 2 usage, 3 refused, 4 done with remarks (--strict), 128 and a "
    "signal's number when one ended it.";
constexpr unsigned kNarrow = 60;  // columns

// Of an option whose name leaves but one blank before its description, the description would not be
// told for a column: it goes to the next line, as those of longer names do.
class HelpFormatter : public CLI::Formatter {
 public:
  std::string make_option(const CLI::Option* option, bool isPositional) const override {
    std::string text = CLI::Formatter::make_option(option, isPositional);
    const std::size_t column = get_column_width();
    const bool isClose = text.size() > column && text[column - 1] == ' ' &&
                         text[column - 2] != ' ' && text[column - 2] != '\n';
    if (isClose) text.replace(column - 1, 1, "\n" + std::string(column, ' '));
    return text;
  }
};

// Makes of arguments a command, help, or what is wrong with them.
class CommandLine {
 public:
  explicit CommandLine(Console& theConsole)
      : console(theConsole),
        app("A virtual hard disk: FAT16 disk images and folders", "virtdisk"),
        parsed(app, theConsole) {
    app.set_version_flag("--version", "virtdisk " VIRTDISK_VERSION);
    app.require_subcommand(1);
    const auto formatter = std::make_shared<HelpFormatter>();
    formatter->column_width(console.width < kNarrow ? 16 : 30);
    app.formatter(formatter);
    for (CLI::App* sub : app.get_subcommands({})) sub->formatter(formatter);
    app.footer(kExitStatuses);
  }

  int Run(std::vector<std::string> arguments) {
    if (!arguments.empty() && arguments.front() == "help") {
      while (!arguments.empty() && arguments.front() == "help") arguments.erase(arguments.begin());
      arguments.emplace_back("--help");
    }
    const std::string unknown = UnknownCommand(arguments);
    const std::string option = UnknownOption(arguments);
    std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
    try {
      app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
      if (!option.empty()) return FailToKnow(option);
      const bool isAskedFor = error.get_exit_code() == 0 && unknown.empty();
      return isAskedFor ? PrintHelp(error) : FailToParse(error, unknown);
    }
    return parsed.RunCommand();
  }

 private:
  std::vector<std::string> Commands() {
    std::vector<std::string> names;
    for (const CLI::App* sub : app.get_subcommands({})) names.push_back(sub->get_name());
    return names;
  }

  // The first word that is no option, where it is no command either.
  std::string UnknownCommand(const std::vector<std::string>& arguments) {
    const auto word = std::find_if(arguments.begin(), arguments.end(), [](const std::string& text) {
      return !text.empty() && text.front() != '-';
    });
    const std::vector<std::string> known = Commands();
    if (word == arguments.end() || std::count(known.begin(), known.end(), *word) != 0) return {};
    return *word;
  }

  // The first option before any command that is none of the program's own.
  std::string UnknownOption(const std::vector<std::string>& arguments) const {
    for (const std::string& text : arguments) {
      if (text.size() < 2 || text.front() != '-' || text == "--") return {};
      const bool isLong = text.starts_with("--");
      std::string name = text.substr(0, isLong ? text.find('=') : 2);
      if (app.get_option_no_throw(name) == nullptr) return name;
    }
    return {};
  }

  static std::vector<std::string> LongOptions(const CLI::App& commandOrAll) {
    std::vector<std::string> names;
    for (const CLI::Option* option : commandOrAll.get_options()) {
      for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
    return names;
  }

  int FailToKnow(const std::string& option) {
    const std::string meant = Suggest(option, LongOptions(app));
    Fail(console, "`" + option + "` is no option of virtdisk itself",
         (meant.empty() ? "" : "Did you mean `" + meant + "`? ") +
             "`virtdisk --help` tells the arguments.");
    return kUsage;
  }

  int PrintHelp(const CLI::ParseError& error) {
    std::ostringstream text;
    app.exit(error, text, text);
    console.out << Wrap(text.str(), console.width);
    return kDone;
  }

  // For the first option that the command does not have. Empty when there is none like it.
  std::string MeantOption() {
    for (CLI::App* sub : app.get_subcommands()) {
      const std::vector<std::string> known = LongOptions(*sub);
      for (const std::string& left : sub->remaining()) {
        if (left.starts_with("--")) return Suggest(left.substr(0, left.find('=')), known);
      }
    }
    return {};
  }

  int FailToParse(const CLI::ParseError& error, const std::string& unknownCommand) {
    std::string name = app.get_name();
    for (const CLI::App* sub : app.get_subcommands()) name += " " + sub->get_name();
    const std::string help = "`" + name + " --help` tells the arguments.";
    const bool isCommand = !unknownCommand.empty();
    const std::string meant = isCommand ? Suggest(unknownCommand, Commands()) : MeantOption();
    Fail(console, isCommand ? "there is no command `" + unknownCommand + "`" : error.what(),
         meant.empty() ? help : "Did you mean `" + meant + "`? " + help);
    return kUsage;
  }

  Console& console;
  CLI::App app;
  Arguments parsed;
};

bool WantsJson(const std::vector<std::string>& arguments) {
  const auto end = std::find(arguments.begin(), arguments.end(), "--");
  return std::find(arguments.begin(), end, "--json") != end;
}

int RunCaught(Console& console, std::vector<std::string> arguments) {
  try {
    return CommandLine(console).Run(std::move(arguments));
  } catch (const std::bad_alloc&) {
    return Fail(console, "not enough memory",
                "Building and synchronising hold an image in memory whole.");
  } catch (const std::exception& error) {
    return Fail(console, error.what(), "Nothing further was done.");
  }
}

}  // namespace

int RunProgram(Console& console, std::vector<std::string> arguments) {
  const bool isJson = WantsJson(arguments);  // also where the arguments are what is wrong
  OutputWatch watch(console.out);
  int status = RunCaught(console, std::move(arguments));
  // Who was told of an error does not have everything he asked for.
  if (status == kDone && !console.error.empty()) status = kFailed;
  if (isJson && !console.isErrorInJson && !console.error.empty()) {
    const std::string& hint = console.errorHint;
    console.out << OneLine({{"error", console.error}, {"hint", hint.empty() ? Json() : Json(hint)}})
                << "\n";
  }
  console.out.flush();
  if (console.out) return status;
  const int error = watch.Error();
  return Fail(console, "cannot write to the standard output" +
                           (error == 0 ? "" : ": " + std::generic_category().message(error)));
}

}  // namespace quorbix::virtdisk::tool
