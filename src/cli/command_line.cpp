#include "cli/command_line.h"

#include <cxxabi.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <string_view>
#include <system_error>
#include <typeinfo>

#include "cli/command_bake.h"
#include "cli/command_cache.h"
#include "cli/command_cache_setup.h"
#include "cli/command_check.h"
#include "cli/command_convert.h"
#include "cli/command_graph.h"
#include "cli/command_info.h"
#include "cli/command_new.h"
#include "cli/command_nodes.h"
#include "cli/command_render.h"
#include "cli/command_run.h"
#include "cli/command_verify.h"
#include "cli/command_why.h"
#include "framework/plugin_error.h"
#include "host/atomic_file.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/worker_pool.h"
#include "io/file_content.h"
#include "nodes/plugins.h"
#include "run/memory_limit.h"
#include "scene/diagnostics.h"

namespace MELDO_GLOBAL::app {

namespace {

constexpr int kMostSamples = 65536;
constexpr const char* kAllowOutsideHelp = "let the scene write files outside of the output folder";
constexpr const char* kVersion = "sulva " SULVA_VERSION;

/// The value of `--set` needs a node, a parameter and a value; what they mean is the scene's
/// matter.
std::string CheckOverride(const std::string& text) {
  const std::size_t equals = text.find('=');
  const std::size_t dot = text.rfind('.', equals);
  if (equals == std::string::npos || dot == std::string::npos || dot == 0 || dot + 1 == equals)
    return "expected NODE.PARAMETER=VALUE, got '" + text + "'";
  return {};
}

std::string CheckGiven(const std::string& text) {
  return text.empty() ? "expected a value, got an empty text" : std::string();
}

struct Options {
  RunOptions run;
  RenderOptions render;
  CacheOptions cache;
  CacheSetupOptions cacheSetup;
  BakeOptions bake;
  WhyOptions why;
  ConvertOptions convert;
  std::string frames, memory, size, checkpoint, from;
  std::string checkScene, graphScene, graphPage, kind, newName, newFile, infoFile, verifyOut;
  bool json = false, schema = false, fix = false, strict = false;
  std::vector<std::string> plugins;
};

/// What every command can be told that knows kinds of nodes.
void AddPlugins(CLI::App* command, Options& o) {
  command
      ->add_option("--plugin", o.plugins,
                   "shared library whose kinds of nodes scenes may use; given again, a further one")
      ->allow_extra_args(false)
      ->check(CheckGiven);
}

void LoadPlugins(const Options& o) {
  for (const std::string& path : o.plugins) try {
      MELDO_SULVA::LoadPlugin(path);
    } catch (const MELDO_SULVA::PluginError& error) {
      throw CommandError(kExitFile, error.what());
    }
}

CLI::App* AddRun(CLI::App& app, Options& o) {
  CLI::App* run = app.add_subcommand("run", "Simulates a scene; writes statistics and exports");
  run->add_option("SCENE", o.run.scene, "scene file")->required();
  run->add_option("--frames", o.frames, "part of the range to write, A:B (A: and :B work too)")
      ->check(CheckGiven);
  run->add_option("--threads", o.run.threads, "worker threads; by default all")
      ->check(CLI::Range(1, host::kMaxWorkers));
  run->add_option("--out", o.run.out, "folder to write to; by default out/<name of the scene>")
      ->check(CheckGiven);
  run->add_option("--set", o.run.overrides, "another value for a parameter, NODE.PARAMETER=VALUE")
      ->allow_extra_args(false)
      ->check(CheckOverride);
  run->add_option("--memory", o.memory, "most memory to use, such as 8G; by default what is free")
      ->check(CheckGiven);
  run->add_option("--checkpoint", o.checkpoint,
                  "frames, minutes or both from one checkpoint to the next, such as 20, 5m or\n"
                  "20,5m; 0 takes none; by default 10,5m, as long as that costs less than 5 % of\n"
                  "the run's time")
      ->check(CheckGiven);
  run->add_option("--keep", o.run.kept, "checkpoints that stay, the newest; 0 keeps all")
      ->check(CLI::Range(0, 1000000000))
      ->capture_default_str();
  CLI::Option* resume =
      run->add_flag("--resume", o.run.resume,
                    "go on behind the newest checkpoint in the output folder, or with --from\n"
                    "behind one of another run, also with other parameters");
  run->add_flag("--restart", o.run.restart,
                "start at the first frame, whatever a run before has left in the output folder")
      ->excludes(resume);
  CLI::Option* out = run->get_option("--out");
  CLI::Option* from =
      run->add_option("--from", o.from, "frame behind which a run branches off into --out")
          ->needs(resume)
          ->needs(out);
  run->add_option("--base", o.run.base,
                  "output folder of the run that --from leaves; by default out/<name of the scene>")
      ->needs(from)
      ->check(CheckGiven);
  run->add_flag("--allow-outside", o.run.allowOutside, kAllowOutsideHelp);
  run->add_flag("--strict", o.run.strict, "a warning makes the exit code 3");
  run->add_flag("--quiet", o.run.quiet, "print nothing but errors, warnings neither");
  run->add_flag("--trace", o.run.trace,
                "print a line for each object and stage that runs: frame substep stage object");
  run->footer(
      "Exit codes: 0 done, 2 wrong usage, 3 invalid scene, 4 not finite, 5 file error,\n"
      "            6 out of memory, 7 interrupted\n\n"
      "Example:\n  sulva run scenes/plume.json --frames 0:20 --set scene.cell_size=0.05");
  return run;
}

CLI::App* AddRender(CLI::App& app, Options& o) {
  CLI::App* render = app.add_subcommand("render", "Simulates a scene and draws its pictures");
  render->add_option("SCENE", o.render.scene, "scene file")->required();
  render->add_option("--frames", o.frames, "frames to draw, A:B (A, A: and :B work too)")
      ->check(CheckGiven);
  render
      ->add_option("--out", o.render.out, "folder to write to; by default out/<name of the scene>")
      ->check(CheckGiven);
  render->add_option("--size", o.size, "size of the pictures in pixels, WxH")->check(CheckGiven);
  render->add_option("--samples", o.render.samples, "camera rays in a pixel")
      ->check(CLI::Range(1, kMostSamples));
  render->add_flag("--exr", o.render.exr, "write OpenEXR files with layers beside the PNG files");
  render->add_flag("--cached", o.render.cached,
                   "play what caches hold, whatever their mode, and simulate nothing");
  render->add_flag("--record", o.render.record,
                   "let caches that record write what is simulated; by default they don't");
  render->add_flag("--allow-outside", o.render.allowOutside, kAllowOutsideHelp);
  render->add_option("--threads", o.render.threads, "worker threads; by default all")
      ->check(CLI::Range(1, host::kMaxWorkers));
  render
      ->add_option("--set", o.render.overrides,
                   "another value for a parameter, NODE.PARAMETER=VALUE")
      ->allow_extra_args(false)
      ->check(CheckOverride);
  render
      ->add_option("--memory", o.memory, "most memory to use, such as 8G; by default what is free")
      ->check(CheckGiven);
  render->add_flag("--quiet", o.render.quiet, "print nothing but errors, warnings neither");
  render->footer("Example:\n  sulva render scenes/plume.json --frames 60 --size 1280x720");
  return render;
}

CLI::App* AddCheck(CLI::App& app, Options& o) {
  CLI::App* check = app.add_subcommand("check", "Reads and validates a scene; runs nothing");
  check->add_option("SCENE", o.checkScene, "scene file")->required();
  check->add_flag("--fix", o.fix,
                  "first put mesh nodes between volumes and the objects that they link, in the\n"
                  "file itself; what it held before is kept beside it as SCENE.bak");
  check->add_flag("--strict", o.strict, "a warning makes the exit code 3");
  check->footer("Example:\n  sulva check scenes/plume.json");
  return check;
}

CLI::App* AddNodes(CLI::App& app, Options& o) {
  CLI::App* nodes =
      app.add_subcommand("nodes", "Lists the kinds of nodes, or one with its parameters");
  nodes->add_option("KIND", o.kind, "short name, label or id of a kind");
  CLI::Option* json = nodes->add_flag("--json", o.json, "print JSON");
  nodes->add_flag("--schema", o.schema, "print the JSON schema of scene files")->excludes(json);
  nodes->footer("Example:\n  sulva nodes gridemitter");
  return nodes;
}

CLI::App* AddGraph(CLI::App& app, Options& o) {
  CLI::App* graph = app.add_subcommand("graph", "Shows a scene's nodes by stage, with their links");
  graph->add_option("SCENE", o.graphScene, "scene file")->required();
  graph->add_option("--html", o.graphPage,
                    "write a web page to look at in a browser; by default prints a list");
  graph->footer("Example:\n  sulva graph scenes/plume.json --html plume.html");
  return graph;
}

CLI::App* AddWhy(CLI::App& app, Options& o) {
  CLI::App* why =
      app.add_subcommand("why", "Simulates a scene; tells frame by frame why a node ran or slept");
  why->add_option("SCENE", o.why.scene, "scene file")->required();
  why->add_option("NODE", o.why.node, "a node of a server, by its name or path")->required();
  why->add_option("--frames", o.frames, "frames to tell of, A:B (A, A: and :B work too)")
      ->check(CheckGiven);
  why->add_option("--threads", o.why.threads, "worker threads; by default all")
      ->check(CLI::Range(1, host::kMaxWorkers));
  why->add_option("--memory", o.memory, "most memory to use, such as 8G; by default the machine's")
      ->check(CheckGiven);
  why->add_option("--set", o.why.overrides, "another value for a parameter, NODE.PARAMETER=VALUE")
      ->allow_extra_args(false)
      ->check(CheckOverride);
  why->footer(
      "It writes no file: caches that record rest, those that play do so from out/<name>.\n\n"
      "Example:\n  sulva why scenes/plume.json lift --frames 0:5");
  return why;
}

CLI::App* AddInfo(CLI::App& app, Options& o) {
  CLI::App* info = app.add_subcommand(
      "info", "Tells what a scene, cache, checkpoint, volume, mesh or particle file holds");
  info->add_option("FILE", o.infoFile, "the file")->required();
  info->footer(
      "Of a scene it simulates the first frame and tells how many cells that takes.\n\n"
      "Example:\n  sulva info scenes/plume.json\n  sulva info "
      "out/plume/checkpoints/00049.checkpoint");
  return info;
}

CLI::App* AddConvert(CLI::App& app, Options& o) {
  CLI::App* convert = app.add_subcommand(
      "convert", "Writes particles, a mesh or volumes anew in the format of another name");
  convert->add_option("IN", o.convert.from, "file to read; #### stands for the frame number")
      ->required();
  convert->add_option("OUT", o.convert.to, "file to write; its suffix names the format")
      ->required();
  convert->add_option("--frames", o.frames, "frames to convert, A:B; by default all that are there")
      ->check(CheckGiven);
  convert->footer(
      "Particles: " + fmt::format("{}", fmt::join(WritableFormats(FileContent::Particles), " ")) +
      ";\nwith .gz behind the suffix most of them are packed.\nMeshes: " +
      fmt::format("{}", fmt::join(WritableFormats(FileContent::Mesh), " ")) +
      ". Volumes: " + fmt::format("{}", fmt::join(WritableFormats(FileContent::Volumes), " ")) +
      ".\n\nExample:\n  sulva convert points/####.ply drops.####.bgeo --frames 0:20");
  return convert;
}

CLI::App* AddVerify(CLI::App& app, Options& o) {
  CLI::App* verify = app.add_subcommand(
      "verify", "Holds an output folder against the manifest of its run: checksums and holes");
  verify->add_option("OUT", o.verifyOut, "output folder of a run")->required();
  verify->footer(
      "Prints a line for each finding; exit code 5 where there are any.\n\n"
      "Example:\n  sulva verify out/plume");
  return verify;
}

CLI::App* AddCache(CLI::App& app, Options& o) {
  CLI::App* cache = app.add_subcommand("cache", "Scans or deletes the files of a scene's caches");
  cache->add_option("ACTION", o.cache.action, "scan or delete")
      ->required()
      ->check(CLI::IsMember({"scan", "delete"}));
  cache->add_option("SCENE", o.cache.scene, "scene file")->required();
  cache->add_option("--node", o.cache.node, "one cache of the scene; by default all");
  cache->add_option("--out", o.cache.out, "output folder of the run; by default out/<name>")
      ->check(CheckGiven);
  cache
      ->add_option("--set", o.cache.overrides,
                   "another value for a parameter, NODE.PARAMETER=VALUE")
      ->allow_extra_args(false)
      ->check(CheckOverride);
  cache->add_flag("--yes", o.cache.yes, "delete without a question");
  cache->footer("Example:\n  sulva cache scan scenes/plume.json");
  return cache;
}

CLI::App* AddCacheSetup(CLI::App& app, Options& o) {
  CLI::App* setup = app.add_subcommand("cache-setup", "Writes a scene that records what it makes");
  setup->add_option("SCENE", o.cacheSetup.scene, "scene file")->required();
  setup->add_option("NODE", o.cacheSetup.nodes,
                    "what to record: fields, volumes, flows, groups of particles, meshers; by "
                    "default all that is simulated");
  setup->add_option("--out", o.cacheSetup.out,
                    "file to write; by default the scene itself, with a copy of what it was");
  setup
      ->add_option("--set", o.cacheSetup.overrides,
                   "another value for a parameter, NODE.PARAMETER=VALUE")
      ->allow_extra_args(false)
      ->check(CheckOverride);
  setup->footer(
      "The parameters cache_... of the server say how; `sulva nodes server` shows them.\n\n"
      "Example:\n  sulva cache-setup my.json smoke heat --set scene.cache_compression=fast");
  return setup;
}

CLI::App* AddBake(CLI::App& app, Options& o) {
  CLI::App* bake = app.add_subcommand(
      "bake", "Writes the motion of a run's rigid bodies as an animation (glTF)");
  bake->add_option("SCENE", o.bake.scene, "scene file")->required();
  bake->add_option("--out", o.bake.out, "output folder of the run; by default out/<name>")
      ->check(CheckGiven);
  bake->add_option("--file", o.bake.file,
                   "file to write; by default bodies.glb in the output folder")
      ->check(CheckGiven);
  bake->add_option("--set", o.bake.overrides, "another value for a parameter, NODE.PARAMETER=VALUE")
      ->allow_extra_args(false)
      ->check(CheckOverride);
  bake->footer(
      "An object whose key \"placements\" names the file goes the same way in another scene.\n\n"
      "Example:\n  sulva bake scenes/dominoes.json");
  return bake;
}

CLI::App* AddNew(CLI::App& app, Options& o) {
  CLI::App* make = app.add_subcommand("new", "Copies a ready-made scene to start from");
  make->add_option("NAME", o.newName,
                   "ready-made scene, by its name or label; without it, their list");
  make->add_option("FILE", o.newFile, "where to; by default NAME.json in this folder");
  make->footer("Example:\n  sulva new plume my_plume.json");
  return make;
}

/// What --frames selects; all without it.
FrameSelection FramesOf(const std::string& text) {
  if (text.empty()) return {};
  const auto frames = ParseFrames(text);
  if (!frames)
    throw CommandError(kExitUsage, "--frames: expected A:B with A <= B, got '" + text + "'");
  return *frames;
}

/// Reads what "run" and "render" have in common.
template <class T>
void ReadFramesAndMemory(const Options& o, T& options) {
  options.frames = FramesOf(o.frames);
  if (!o.memory.empty()) {
    const auto bytes = ParseByteCount(o.memory);
    if (!bytes)
      throw CommandError(kExitUsage,
                         "--memory: expected a size such as 512M or 8G, got '" + o.memory + "'");
    options.memory = *bytes;
  }
}

int RunCommand(Options& o) {
  ReadFramesAndMemory(o, o.run);
  if (!o.checkpoint.empty()) {
    const auto plan = ParseCheckpoints(o.checkpoint);
    if (!plan)
      throw CommandError(kExitUsage,
                         "--checkpoint: expected frames, minutes or both, such as 20, 5m or 20,5m, "
                         "got '" +
                             o.checkpoint + "'");
    o.run.checkpoint = *plan;
  }
  if (!o.from.empty()) {
    const auto frame = ParseFrames(o.from);
    if (!frame || o.from.find(':') != std::string::npos)
      throw CommandError(kExitUsage, "--from: expected a frame, got '" + o.from + "'");
    o.run.from = frame->first;
  }
  return RunScene(o.run);
}

int RenderCommand(Options& o) {
  ReadFramesAndMemory(o, o.render);
  if (!o.size.empty()) {
    o.render.size = ParseSize(o.size);
    if (!o.render.size)
      throw CommandError(kExitUsage,
                         "--size: expected WxH in pixels, such as 640x360, got '" + o.size + "'");
  }
  return RenderScene(o.render);
}

/// Says which words a command doesn't know, each with the nearest flag that it has.
void TellUnknownWords(const CLI::App& app) {
  for (const CLI::App* command : app.get_subcommands()) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command->get_options())
      for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    const std::vector<std::string_view> flags(names.begin(), names.end());
    for (const std::string& word : command->remaining())
      std::fprintf(stderr,
                   word.starts_with('-') ? "error: %s has no option '%s'%s\n"
                                         : "error: %s doesn't expect '%s' here%s\n",
                   command->get_name().c_str(), Shown(word).c_str(),
                   word.starts_with('-') ? Suggestion(word, flags).c_str() : "");
    std::fprintf(stderr, "Try 'sulva %s --help'.\n", command->get_name().c_str());
  }
}

int Dispatch(int argc, char** argv) {
  CLI::App app("Sulva: fluid simulation from a graph of nodes", "sulva");
  app.set_version_flag("--version", kVersion, "print the version and end");
  app.require_subcommand(1);
  app.footer("Every command has --help.\n\nExample:\n  sulva run scenes/plume.json");
  Options options;
  CLI::App* run = AddRun(app, options);
  CLI::App* render = AddRender(app, options);
  CLI::App* check = AddCheck(app, options);
  CLI::App* nodes = AddNodes(app, options);
  CLI::App* graph = AddGraph(app, options);
  CLI::App* why = AddWhy(app, options);
  CLI::App* info = AddInfo(app, options);
  const CLI::App* verify = AddVerify(app, options);
  CLI::App* cache = AddCache(app, options);
  CLI::App* cacheSetup = AddCacheSetup(app, options);
  CLI::App* bake = AddBake(app, options);
  const CLI::App* convert = AddConvert(app, options);
  AddNew(app, options);
  for (CLI::App* command : {run, render, check, nodes, graph, why, info, cache, cacheSetup, bake})
    AddPlugins(command, options);

  const std::vector<std::string_view> commands = {
      "run",    "render", "check",       "nodes", "graph",   "why", "info",
      "verify", "cache",  "cache-setup", "bake",  "convert", "new"};
  if (argc > 1 && argv[1][0] != '-' &&
      std::find(commands.begin(), commands.end(), argv[1]) == commands.end()) {
    std::fprintf(stderr, "error: unknown command '%s'%s\nTry 'sulva --help'.\n",
                 Shown(argv[1]).c_str(), Suggestion(argv[1], commands).c_str());
    return kExitUsage;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& asked) {
    return app.exit(asked, std::cout, std::cerr);
  } catch (const CLI::ExtrasError&) {
    TellUnknownWords(app);
    return kExitUsage;
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "error: %s\nTry 'sulva --help'.\n", host::Escaped(error.what()).c_str());
    return kExitUsage;
  }
  LoadPlugins(options);
  if (run->parsed()) return RunCommand(options);
  if (render->parsed()) return RenderCommand(options);
  if (check->parsed()) return RunCheck(options.checkScene, options.fix, options.strict);
  if (nodes->parsed())
    return options.schema ? RunNodesSchema() : RunNodes(options.kind, options.json);
  if (graph->parsed()) return RunGraph(options.graphScene, options.graphPage);
  if (why->parsed()) {
    ReadFramesAndMemory(options, options.why);
    return RunWhy(options.why);
  }
  if (info->parsed()) return RunInfo(options.infoFile);
  if (verify->parsed()) return RunVerify(options.verifyOut);
  if (cache->parsed()) return RunCache(options.cache);
  if (cacheSetup->parsed()) return RunCacheSetup(options.cacheSetup);
  if (bake->parsed()) return RunBake(options.bake);
  if (convert->parsed()) {
    options.convert.frames = FramesOf(options.frames);
    return RunConvert(options.convert);
  }
  return RunNew(options.newName, options.newFile);
}

/// Libraries that run out of memory where nothing can be caught end the program here: what lies on
/// the disk is as whole as behind a kill. Nothing here may allocate.
[[noreturn]] void EndUncaught() {
  const std::type_info* type = abi::__cxa_current_exception_type();
  if (!type || *type != typeid(std::bad_alloc)) {
    __gnu_cxx::__verbose_terminate_handler();
    std::abort();
  }
  constexpr std::string_view kText =
      "error: out of memory: the system gives no more to a library, of volume files most likely; "
      "raise cell_size, or export fewer grids; --resume goes on behind the newest state\n";
  [[maybe_unused]] const ssize_t ignored = ::write(STDERR_FILENO, kText.data(), kText.size());
  ::_exit(kExitMemory);
}

/// An answer that doesn't reach its reader is a file that can't be written.
int FinishAnswer(int code) {
  if (std::cout.flush() && std::fflush(stdout) == 0 && !std::ferror(stdout)) return code;
  std::fputs("error: cannot write to standard output\n", stderr);
  return code == kExitDone ? int{kExitFile} : code;
}

}  // namespace

void SettleUncaught() { std::set_terminate(EndUncaught); }

int Main(int argc, char** argv) {
  host::SettleStandardDescriptors();
  SettleUncaught();
  // A file beyond the system's limit is a failed write, not the end of the program.
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    // What files say of themselves is held against it, also before a run has its own limit.
    const MemoryGuard memory(MachineMemory());
    return FinishAnswer(Dispatch(argc, argv));
  } catch (const CommandError& error) {
    std::fprintf(stderr, "error: %s\n", host::Escaped(error.what()).c_str());
    return error.code;
  } catch (const std::bad_alloc&) {
    std::fputs("error: out of memory\n", stderr);
    return kExitMemory;
  } catch (const std::system_error& error) {
    std::fprintf(stderr, "error: %s\n", host::Escaped(error.what()).c_str());
    return kExitFile;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "error: internal: %s\n", error.what());
    return 1;
  }
}

}  // namespace MELDO_GLOBAL::app
