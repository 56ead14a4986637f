#include "commands/arguments.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands/commands.h"
#include "commands/sync_report.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr char kJsonHelp[] = "Print JSON";
constexpr char kImageHelp[] = "Disk image";
constexpr char kForceHelp[] = "Read even a volume that is no FAT16";
constexpr char kAllHelp[] = "With the entries that no listing shows, as `.profile` becomes";

const std::map<std::string, GuardedSyncOptions::ConflictRule> kConflictRules{
    {"both", GuardedSyncOptions::ConflictRule::kKeepBoth},
    {"disk", GuardedSyncOptions::ConflictRule::kTakeDisk},
    {"host", GuardedSyncOptions::ConflictRule::kTakeHost},
    {"stop", GuardedSyncOptions::ConflictRule::kStop}};

}  // namespace

class Arguments::Commands {
 public:
  Commands(CLI::App& theApp, Console& theConsole, std::function<int()>& chosen)
      : app(theApp), console(theConsole), command(chosen) {
    AddBuild();
    AddMeasure();
    AddInfo();
    AddList();
    AddFind();
    AddTree();
    AddCat();
    AddGet();
    AddPut();
    AddMap();
    AddVerify();
    AddSync();
    AddRestore();
    AddDemo();
    AddWhatAllHave(app);
    for (CLI::App* sub : app.get_subcommands({})) AddWhatAllHave(*sub);
  }

 private:
  CLI::App* Add(const std::string& name, const std::string& text, const std::string& example,
                std::function<int()> run) {
    CLI::App* sub = app.add_subcommand(name, text);
    sub->footer("Example:\n  virtdisk " + example);
    sub->callback([this, run = std::move(run)] { command = run; });
    return sub;
  }

  void AddWhatAllHave(CLI::App& sub) {
    sub.add_flag("-q,--quiet", console.quiet, "Print data and errors, nothing else");
  }

  void AddBuild() {
    CLI::App* sub =
        Add("build", "Make a disk image from a folder", "build ~/disks/GAMES games.img --size 64M",
            [this] { return RunBuild(console, build); });
    sub->add_option("FOLDER", build.folder,
                    "Folder to copy; its last name becomes the disk's label, and a path that ends "
                    "in / gives none")
        ->required();
    sub->add_option("IMAGE", build.image, "Disk image to write")->required();
    sub->add_option_function<std::string>(
        "--size", [this](const std::string& t) { SetSize(t); },
        "Size of the image: bytes, or with K, M or G, also KB or KiB and so on (powers of 1024), "
        "as "
        "in 1.5G, or auto for the smallest whole number of MiB that will do (the default)");
    sub->add_option_function<std::string>(
        "--label", [this](const std::string& t) { SetLabel(t); },
        "Label of the disk, at most 11 characters; without it, FOLDER's last name");
    sub->add_flag("--in-place", build.inPlace,
                  "Write into the image that exists, for a machine that has it attached; without "
                  "it, the complete new image takes its place");
    sub->add_flag("--force", build.force,
                  "Replace a file that is no disk image or is write-protected, and write inside "
                  "FOLDER");
    sub->add_flag("--strict", build.strict,
                  "Exit with 4 when an entry was skipped, or the library made a remark");
    sub->add_flag("-v,--verbose", build.verbose,
                  "List all remarks, not the first ten of each kind");
    sub->add_flag("--json", build.json, kJsonHelp);
  }

  void AddMeasure() {
    CLI::App* sub = Add("measure", "Tell how large a folder is, and the image that it needs",
                        "measure ~/disks/GAMES", [this] { return RunMeasure(console, measure); });
    sub->add_option("FOLDER", measure.folder, "Folder to measure")->required();
    sub->add_flag("--json", measure.json, kJsonHelp);
  }

  void AddInfo() {
    CLI::App* sub = Add("info", "Describe the volume in an image", "info games.img",
                        [this] { return RunInfo(console, info); });
    sub->add_option("IMAGE", info.image, kImageHelp)->required();
    sub->add_flag("--json", info.json, kJsonHelp);
  }

  void AddList() {
    CLI::App* sub = Add("ls", "List a directory of an image", "ls games.img /LETTERS -l",
                        [this] { return RunList(console, list); });
    sub->add_option("IMAGE", list.image, kImageHelp)->required();
    sub->add_option("PATH", list.path, "Directory or file inside the image (/ without it)");
    sub->add_flag("-R,--recursive", list.recursive, "Everything below, by full path");
    sub->add_flag("-l,--long", list.details, "With attributes, size and date");
    sub->add_flag("-a,--all", list.all, kAllHelp);
    sub->add_flag("--force", list.force, kForceHelp);
    sub->add_flag("--json", list.json, "Print a JSON object a line");
  }

  void AddFind() {
    CLI::App* sub = Add("find", "Find files and directories by a part of their paths",
                        "find games.img maze", [this] { return RunFind(console, find); });
    sub->add_option("IMAGE", find.image, kImageHelp)->required();
    sub->add_option("TEXT", find.text, "Text to look for, in any letter case")->required();
    sub->add_flag("-a,--all", find.all, kAllHelp);
    sub->add_flag("--force", find.force, kForceHelp);
    sub->add_flag("--json", find.json, "Print a JSON object a line");
  }

  void AddTree() {
    CLI::App* sub = Add("tree", "Draw the tree of an image's directories, with sizes",
                        "tree games.img /LETTERS", [this] { return RunTree(console, tree); });
    sub->add_option("IMAGE", tree.image, kImageHelp)->required();
    sub->add_option("PATH", tree.path, "Directory inside the image (/ without it)");
    sub->add_flag("-a,--all", tree.all, kAllHelp);
    sub->add_flag("--force", tree.force, kForceHelp);
    sub->add_flag("--json", tree.json, "Print a JSON object a line");
  }

  void AddCat() {
    CLI::App* sub = Add("cat", "Write a file of an image to the standard output",
                        "cat games.img /LETTERS/AUNT.TXT", [this] { return RunCat(console, cat); });
    sub->add_option("IMAGE", cat.image, kImageHelp)->required();
    sub->add_option("PATH", cat.path, "File inside the image")->required();
    sub->add_flag("--force", cat.force, kForceHelp);
    sub->add_flag("--json", cat.json, "Print a JSON object that has the content in Base64");
  }

  void AddGet() {
    CLI::App* sub = Add("get", "Copy a file or a whole directory out of an image",
                        "get games.img / ~/rescued", [this] { return RunGet(console, get); });
    sub->add_option("IMAGE", get.image, kImageHelp)->required();
    sub->add_option("PATH", get.path, "File or directory inside the image")->required();
    sub->add_option("DEST", get.destination,
                    "For a file, its new path or an existing folder; for a directory, the folder "
                    "that takes its content")
        ->required();
    sub->add_flag("-a,--all", get.all, kAllHelp);
    sub->add_flag("--force", get.force,
                  "Replace files that exist, and read even a volume that is no FAT16");
    sub->add_flag("--json", get.json, kJsonHelp);
  }

  void AddPut() {
    CLI::App* sub =
        Add("put", "Replace the content of a file that exists in an image, in its own clusters",
            "put games.img /LETTERS/AUNT.TXT aunt.txt", [this] { return RunPut(console, put); });
    sub->add_option("IMAGE", put.image,
                    "Disk image; without --in-place replaced whole or not at all")
        ->required();
    sub->add_option("PATH", put.path, "File inside the image")->required();
    sub->add_option("FILE", put.file, "File with the new content")->required();
    sub->add_flag("--in-place", put.inPlace,
                  "Write into the image itself, for a machine that has it attached");
    sub->add_flag("--force", put.force,
                  "Write even into a volume that is no FAT16, or a write-protected image");
    sub->add_flag("--json", put.json, kJsonHelp);
  }

  void AddMap() {
    CLI::App* sub = Add("map", "Draw how an image's clusters are used", "map games.img -o disk.svg",
                        [this] { return RunMap(console, map); });
    sub->add_option("IMAGE", map.image, kImageHelp)->required();
    sub->add_flag("--force", map.force, "Replace a file that `map` did not draw");
    sub->add_option("-o,--output", map.picture,
                    "Write a picture there when it ends in .svg, a page to search when it ends in "
                    ".html (- for a picture on the standard output)")
        ->excludes(sub->add_flag("--json", map.json, kJsonHelp));
  }

  void AddVerify() {
    CLI::App* sub = Add("verify", "Tell whether the volume in an image is sound",
                        "verify games.img", [this] { return RunVerify(console, verify); });
    sub->add_option("IMAGE", verify.image, kImageHelp)->required();
    sub->add_flag("--json", verify.json, kJsonHelp);
  }

  void AddSync() {
    CLI::App* sub = Add("sync", "Keep an image and a folder in step, both ways, until interrupted",
                        "sync games.img ~/disks/GAMES", [this] { return RunSync(console, sync); });
    sub->add_option("IMAGE", sync.image, kImageHelp)->required();
    sub->add_option("FOLDER", sync.folder, "Folder")->required();
    sub->footer(
        "What is replaced or deleted goes to the trash, see `virtdisk restore`. What would lose "
        "files is refused, and told.\n\nExample:\n  virtdisk sync games.img ~/disks/GAMES");
    sub->add_flag("--once", sync.once, "Run one pass and end");
    sub->add_flag("-n,--dry-run", sync.dryRun, "Tell what a pass would do, and touch nothing");
    sub->add_option("--interval", sync.intervalMs,
                    "Milliseconds after which to look even when nothing seems to have changed")
        ->capture_default_str();
    sub->add_option_function<std::vector<std::string>>(
           "--accept", [this](const std::vector<std::string>& names) { SetAccepted(names); },
           "Go on in spite of a hazard, by the name that a refusal gives; where it is one event, "
           "such as many deletions, until both sides are in step")
        ->type_name("HAZARD")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    sub->add_option_function<std::string>(
           "--on-conflict", [this](const std::string& rule) { SetConflictRule(rule); },
           "What to do with a file that both sides changed: keep both (the default), take the "
           "disk's or the host's, or stop")
        ->type_name("both|disk|host|stop");
    sub->add_option_function<std::uint32_t>(
        "--settle", [this](const std::uint32_t& ms) { SetSettle(ms); },
        "Milliseconds for which a side must have been quiet (2000)");
    sub->add_option_function<std::string>(
        "--trash-size", [this](const std::string& t) { SetTrashSize(t); },
        "Most that the trash keeps, as 4G (the default)");
    sub->add_option("--state", sync.guarded.stateFolder,
                    "Folder for what is remembered, and the trash (IMAGE.sync)");
    sub->add_flag("--in-place", sync.guarded.inPlace,
                  "Write into the image itself, for a machine that has it attached");
    sub->add_flag("--verify", sync.guarded.verify, "Read every file, whatever its times say");
    sub->add_option("--status", sync.status, "File to write each pass's report to, as JSON");
    sub->add_flag("--json", sync.json, "Print a JSON object for every pass");
  }

  void AddRestore() {
    CLI::App* sub = Add("restore", "List what `sync` has replaced or deleted, and bring it back",
                        "restore games.img 2026-11-21_17.20.05/3 --to old.txt",
                        [this] { return RunRestore(console, restore); });
    sub->add_option("IMAGE", restore.image, "Disk image that `sync` keeps in step")->required();
    CLI::Option* item =
        sub->add_option("ITEM", restore.id, "What to bring back, by the name in the list");
    sub->add_option("--to", restore.target, "File to write it to")->needs(item);
    sub->add_option("--folder", restore.folder, "Folder in which it gets its old name")
        ->needs(item);
    sub->add_flag("--force", restore.force,
                  "Replace what has that name by now, which goes to the trash")
        ->needs(item);
    sub->add_option("--state", restore.state, "Folder of what is remembered (IMAGE.sync)");
    sub->add_flag("--json", restore.json, "Print a JSON object a line");
  }

  void AddDemo() {
    CLI::App* sub = Add("demo", "Show the whole life of a disk in a temporary folder",
                        "demo examples/sample_disk", [this] { return RunDemo(console, demo); });
    sub->add_option("FOLDER", demo.folder, "Folder to start from; a sample without it");
    sub->add_flag("--keep", demo.keep, "Leave the temporary folder behind");
    sub->add_flag("--json", demo.json, "Print a JSON object for every step");
  }

  void SetSize(const std::string& text) {
    build.size.reset();
    if (text == "auto") return;
    build.size = ParseSize(text);
    if (build.size) return;
    throw CLI::ValidationError("--size", "\"" + text +
                                             "\" is no size; give bytes, a number with "
                                             "K, M or G, or auto");
  }

  void SetAccepted(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
      const auto hazard = FindHazard(name);
      if (!hazard) throw CLI::ValidationError("--accept", "there is no hazard \"" + name + "\"");
      sync.accepted.push_back(*hazard);
    }
  }

  void SetConflictRule(const std::string& name) {
    const auto rule = kConflictRules.find(name);
    if (rule == kConflictRules.end()) {
      throw CLI::ValidationError("--on-conflict",
                                 "\"" + name + "\" is none of both, disk, host, stop");
    }
    sync.guarded.onConflict = rule->second;
  }

  void SetSettle(std::uint32_t ms) { sync.guarded.settle = std::chrono::milliseconds(ms); }

  void SetTrashSize(const std::string& text) {
    const auto size = ParseSize(text);
    if (!size) throw CLI::ValidationError("--trash-size", "\"" + text + "\" is no size");
    sync.guarded.trashBytes = *size;
  }

  void SetLabel(const std::string& text) {
    build.label = text;
    const std::string wrong = WhyNoLabel(text);
    if (!wrong.empty()) throw CLI::ValidationError("--label", wrong);
  }

  CLI::App& app;
  Console& console;
  std::function<int()>& command;
  BuildOptions build;
  MeasureOptions measure;
  InfoOptions info;
  ListOptions list;
  FindOptions find;
  TreeOptions tree;
  CatOptions cat;
  GetOptions get;
  PutOptions put;
  MapOptions map;
  VerifyOptions verify;
  SyncOptions sync;
  RestoreOptions restore;
  DemoOptions demo;
};

Arguments::Arguments(CLI::App& app, Console& console)
    : commands(std::make_unique<Commands>(app, console, chosen)) {}

Arguments::~Arguments() = default;

}  // namespace quorbix::virtdisk::tool
