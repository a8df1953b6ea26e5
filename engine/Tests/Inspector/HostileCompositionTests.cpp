// Scenes written to hurt: arc cycles, endless chains, exponential fan-out, files that are not
// files, and paths out of the project. Each must end in a problem or a clear error, never in a
// hang, a crash or all of the memory; the last tests run the helper executable under a memory and
// a time limit.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Inspector/StageInspector.h"
#include "UsdText/LayerReader.h"
#include "UsdText/SceneGenerator.h"
#include "UsdText/StageComposer.h"
#include "orvan/wire/JsonDecoder.h"

namespace orvan::engine {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif
#else
constexpr bool kAddressSanitizer = false;
#endif

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kHostile = ORVAN_ENGINE_FIXTURES_DIR "/Hostile/";

std::vector<std::string> problemsOf(const Stage& stage, std::string_view path) {
  std::vector<std::string> messages;
  for (const StageProblem& problem : stage.problems) {
    if (problem.primPath == path)
      messages.push_back(problem.message);
  }
  return messages;
}

std::string chainScene(int length) {
  std::string text = "#usda 1.0\n";
  for (int i = 0; i + 1 < length; ++i)
    text +=
        "def \"P" + std::to_string(i) + "\" (references = </P" + std::to_string(i + 1) + ">) {}\n";
  text += "def \"P" + std::to_string(length - 1) + "\" { def \"Leaf\" {} }\n";
  return text;
}

// A folder of its own per test, removed afterwards.
class TempFolder {
 public:
  TempFolder() {
    path_ =
        fs::temp_directory_path() / ("orvan_hostile_" + std::to_string(::getpid()) + "_" +
                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(path_);
    fs::create_directories(path_);
    path_ = fs::canonical(path_);
  }
  ~TempFolder() { fs::remove_all(path_); }
  const fs::path& path() const { return path_; }
  std::string write(const std::string& name, const std::string& text) const {
    fs::create_directories((path_ / name).parent_path());
    std::ofstream(path_ / name, std::ios::binary | std::ios::trunc) << text;
    return (path_ / name).string();
  }

 private:
  fs::path path_;
};

TEST(HostileComposition, ArcCyclesOfEveryKindAndThroughAncestorsAreProblemsAtTheirStatement) {
  const StageOpenResult opened = openStage(kHostile + "cycles.usda");
  ASSERT_TRUE(opened.ok()) << opened.error->describe();
  const Stage& stage = *opened.stage;
  struct Case {
    const char* prim;
    const char* where;  // file:line:column of the arc that closes the cycle
    const char* what;
  };
  for (const Case& c :
       {Case{"/Ref/Child", "cycles.usda:3:26:", "reference to '</Ref>'"},
        Case{"/Inh/Child", "cycles.usda:4:26:", "inherit arc to </Inh>"},
        Case{"/Special/Child", "cycles.usda:5:30:", "specialize arc to </Special>"},
        Case{"/Pay/Child", "cycles.usda:6:26:", "payload to '</Pay>'"},
        Case{"/Deep/Mid/Child", "cycles.usda:7:39:", "reference to '</Deep>'"},
        Case{"/Self", "cycles.usda:8:13:", "reference to '</Self>'"},
        Case{"/Below", "cycles.usda:9:14:", "inherit arc to </Below/Part>"},
        Case{"/ViaFile/Child", "cycle_other.usda:3:13:", "reference to 'cycles.usda'"}}) {
    const ComposedPrim* prim = stage.findPrim(c.prim);
    ASSERT_NE(prim, nullptr) << c.prim;
    const auto problems = problemsOf(stage, c.prim);
    ASSERT_EQ(problems.size(), 1u) << c.prim;
    EXPECT_THAT(problems[0], StartsWith(c.where)) << c.prim;
    EXPECT_THAT(problems[0], HasSubstr(c.what)) << c.prim;
    EXPECT_THAT(problems[0], HasSubstr("leads back to itself")) << c.prim;
    // The arc that closes the cycle is dropped, so nothing repeats below the prim.
    EXPECT_EQ(stage.findPrim(std::string(c.prim) + "/Child"), nullptr) << c.prim;
  }
  // The arcs before the closing one still count: Back brought in by ViaFile/Child.
  EXPECT_GT(stage.findPrim("/ViaFile/Child")->opinionCount, 1u);
  // A reference to a sibling's subtree is no cycle.
  EXPECT_TRUE(problemsOf(stage, "/Fine/User").empty());
  EXPECT_NE(stage.findPrim("/Fine/User/Leaf"), nullptr);
  EXPECT_LT(stage.prims.size(), 40u);
}

TEST(HostileComposition, AHundredThousandLongReferenceChainComposesWithoutDeepRecursion) {
  const LayerReadResult read = readLayerText("chain.usda", chainScene(100'000));
  ASSERT_TRUE(read.ok());
  const StageOpenResult opened = composeStage(read.layer);
  ASSERT_TRUE(opened.ok()) << opened.error->describe();
  const Stage& stage = *opened.stage;
  EXPECT_EQ(stage.rootPrims.size(), 100'000u);
  // P0 reaches as far as arcs may nest, and says so at the arc it stopped at.
  const ComposedPrim& first = *stage.findPrim("/P0");
  EXPECT_EQ(first.opinionCount, kMaxArcDepth);
  const auto problems = problemsOf(stage, "/P0");
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_THAT(problems[0], StartsWith("chain.usda:" + std::to_string(kMaxArcDepth + 1) + ":"));
  EXPECT_THAT(problems[0], HasSubstr("nest more than"));
  // The end of the chain is within reach and composes in full.
  EXPECT_NE(stage.findPrim("/P99990/Leaf"), nullptr);
  EXPECT_TRUE(problemsOf(stage, "/P99990").empty());
}

TEST(HostileComposition, ExponentialFanOutEndsAtThePrimsSitesOrAtTheStagesBudget) {
  // Down the arcs of one prim: each prim stops at the sites one prim may have.
  const StageOpenResult fan = openStage(kHostile + "fan_out.usda");
  ASSERT_TRUE(fan.ok()) << fan.error->describe();
  const ComposedPrim& top = *fan.stage->findPrim("/N0a");
  EXPECT_LE(top.opinionCount, kMaxPrimSites);
  const auto problems = problemsOf(*fan.stage, "/N0a");
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_THAT(problems[0], HasSubstr("more than " + std::to_string(kMaxPrimSites) + " sites"));

  // Down namespace: 2^24 prims; the stage ends at its budget.
  ComposeOptions options;
  options.limits.maxSites = 200'000;
  const StageOpenResult wide = openStage(kHostile + "fan_out_namespace.usda", options);
  ASSERT_FALSE(wide.ok());
  EXPECT_EQ(wide.error->file, kHostile + "fan_out_namespace.usda");
  EXPECT_THAT(wide.error->message, HasSubstr("more than 200000 sites"));
  options.limits = {.maxPrims = 5'000, .maxSites = 10'000'000};
  const StageOpenResult many = openStage(kHostile + "fan_out_namespace.usda", options);
  ASSERT_FALSE(many.ok());
  EXPECT_THAT(many.error->message, HasSubstr("more than 5000 prims"));
}

TEST(HostileComposition, LayerAndOutputSizeLimitsEndInAClearError) {
  TempFolder folder;
  const std::string big = folder.write("big.usda", generateScene(300));
  const std::string scene =
      folder.write("scene.usda", "#usda 1.0\ndef \"A\" (references = @big.usda@</World>) {}\n");
  ComposeOptions options;
  options.limits.maxLayerBytes = 10'000;
  const StageOpenResult opened = openStage(scene, options);
  ASSERT_TRUE(opened.ok());
  const auto problems = problemsOf(*opened.stage, "/A");
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_THAT(problems[0], HasSubstr("'big.usda' is larger than the limit of 10000 bytes"));
  const StageOpenResult root = openStage(big, options);
  ASSERT_FALSE(root.ok());
  EXPECT_EQ(root.error->message, "is larger than the limit of 10000 bytes");

  const StageOpenResult whole = openStage(big);
  ASSERT_TRUE(whole.ok());
  std::string json;
  const auto refused =
      writeInspectionJson(*whole.stage, InspectOptions{.maxOutputBytes = 50'000}, json);
  ASSERT_TRUE(refused.has_value());
  EXPECT_THAT(*refused, HasSubstr("larger than the limit of 50000 bytes"));
}

// Only regular files are layers: a pipe nobody writes to, an endless device or a folder is a
// problem at once, as a reference and as a sublayer.
TEST(HostileComposition, PipesDevicesAndFoldersAreProblemsWithoutBeingRead) {
  TempFolder folder;
  const std::string fifo = (folder.path() / "pipe.usda").string();
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  fs::create_directories(folder.path() / "folder.usda");
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"pipe.usda", "is not a regular file"},
      {"/dev/zero", "is not a regular file"},
      {"/dev/urandom", "is not a regular file"},
      {"folder.usda", "is a folder, not a layer file"}};
  std::string text = "#usda 1.0\n(\n    subLayers = [\n";
  for (const auto& [asset, reason] : cases)
    text += "        @" + asset + "@,\n";
  text += "    ]\n)\n";
  for (std::size_t i = 0; i < cases.size(); ++i)
    text += "def \"R" + std::to_string(i) + "\" (references = @" + cases[i].first + "@</A>) {}\n";
  const std::string scene = folder.write("scene.usda", text);

  const auto start = std::chrono::steady_clock::now();
  const StageOpenResult opened = openStage(scene);
  ASSERT_TRUE(opened.ok()) << opened.error->describe();
  const auto stageProblems = problemsOf(*opened.stage, "");
  ASSERT_EQ(stageProblems.size(), cases.size());
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const auto& [asset, reason] = cases[i];
    EXPECT_THAT(stageProblems[i], HasSubstr("The sublayer '" + asset + "'"));
    EXPECT_THAT(stageProblems[i], HasSubstr(reason)) << asset;
    const auto problems = problemsOf(*opened.stage, "/R" + std::to_string(i));
    ASSERT_EQ(problems.size(), 1u) << asset;
    EXPECT_THAT(problems[0], StartsWith("scene.usda:" + std::to_string(10 + i) + ":11: "));
    EXPECT_THAT(problems[0], HasSubstr(reason)) << asset;
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));

  const StageOpenResult pipeRoot = openStage(fifo);
  ASSERT_FALSE(pipeRoot.ok());
  EXPECT_EQ(pipeRoot.error->file, fifo);
  EXPECT_EQ(pipeRoot.error->message, "is not a regular file");
}

TEST(HostileComposition, AConfinedStageReadsNothingOutsideItsFolderAndSaysNothingAboutIt) {
  TempFolder folder;
  fs::copy(kHostile + "project", folder.path() / "project");
  fs::copy(kHostile + "outside", folder.path() / "outside");
  fs::create_symlink("../outside/secret.usda", folder.path() / "project" / "link.usda");
  std::ofstream(folder.path() / "project" / "scene.usda", std::ios::app)
      << "def \"Linked\" (references = @link.usda@) {}\n";
  const std::string scene = (folder.path() / "project" / "scene.usda").string();

  // Unconfined, the secret is there to read.
  const StageOpenResult open = openStage(scene);
  ASSERT_TRUE(open.ok());
  EXPECT_NE(open.stage->findPrim("/World/Secret"), nullptr);
  EXPECT_TRUE(problemsOf(*open.stage, "/World/Secret").empty());

  const StageOpenResult confined =
      openStage(scene, {.confinementRoot = (folder.path() / "project").string()});
  ASSERT_TRUE(confined.ok());
  const Stage& stage = *confined.stage;
  const std::string outside = ": it is outside the project folder";
  EXPECT_EQ(problemsOf(stage, ""),
            std::vector<std::string>{"scene.usda:3:5: The sublayer '../outside/secret.usda' of "
                                     "scene.usda is left out" +
                                     outside});
  for (const auto& [prim, asset] : std::vector<std::pair<std::string, std::string>>{
           {"/World/Secret", "../outside/secret.usda"},
           {"/World/Missing", "../outside/nothing_here.usda"},
           {"/World/Shadow", "/etc/shadow"},
           {"/Linked", "link.usda"}}) {
    const auto problems = problemsOf(stage, prim);
    ASSERT_EQ(problems.size(), 1u) << prim;
    // The same words whether the file exists or not; only the asset as written differs.
    EXPECT_THAT(problems[0],
                testing::EndsWith("The reference to '" + asset + "' is left out" + outside));
  }
  EXPECT_TRUE(problemsOf(stage, "/World/Inside").empty());
  EXPECT_NE(stage.findPrim("/Thing"), nullptr);
  for (const StageLayer& layer : stage.layers)
    EXPECT_EQ(layer.identifier.find("outside"), std::string::npos) << layer.identifier;

  const StageOpenResult rootOutside =
      openStage((folder.path() / "outside" / "secret.usda").string(),
                {.confinementRoot = (folder.path() / "project").string()});
  ASSERT_FALSE(rootOutside.ok());
  EXPECT_THAT(rootOutside.error->message, HasSubstr("outside the project folder"));
}

// ---- the helper executable under a memory and a time limit ----

struct ChildRun {
  bool exited = false;
  int status = -1;  // exit status, or the signal that ended it
  std::string out;
  std::string err;
};

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Runs the inspector with at most `memoryBytes` of address space, killed after `seconds`.
ChildRun runLimited(const TempFolder& folder, std::vector<std::string> arguments,
                    std::uint64_t memoryBytes = 3ull << 30, unsigned seconds = 60) {
  const fs::path out = folder.path() / "child.out";
  const fs::path err = folder.path() / "child.err";
  arguments.insert(arguments.begin(), ORVAN_ENGINE_BIN_DIR "/orvan_usd_inspector");
  std::vector<char*> argv;
  for (std::string& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    // Under AddressSanitizer the helper reserves terabytes of shadow address space at start, so
    // an address-space limit would stop it before it reads anything; the time limit still holds.
    if (!kAddressSanitizer) {
      const rlimit memory{memoryBytes, memoryBytes};
      ::setrlimit(RLIMIT_AS, &memory);
    }
    const int outFd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int errFd = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(outFd, 1);
    ::dup2(errFd, 2);
    if (::chdir(folder.path().c_str()) != 0)
      ::_exit(126);
    ::alarm(seconds);  // survives exec: SIGALRM ends a run that takes too long
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  ChildRun run;
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child)
    return run;
  run.exited = WIFEXITED(status);
  run.status = run.exited ? WEXITSTATUS(status) : WTERMSIG(status);
  run.out = slurp(out);
  run.err = slurp(err);
  return run;
}

TEST(HostileInspectorExecutable, HostileScenesEndInAProblemOrAnErrorWithinMemoryAndTime) {
  TempFolder folder;
  folder.write("chain.usda", chainScene(100'000));
  const ChildRun cycles = runLimited(folder, {kHostile + "cycles.usda"});
  ASSERT_TRUE(cycles.exited) << "signal " << cycles.status;
  EXPECT_EQ(cycles.status, 0) << cycles.err;
  EXPECT_THAT(cycles.out, HasSubstr("cycles.usda:3:26: The reference to '</Ref>'"));

  // P0's arcs are the deepest part, composed first: a recursion without bounds fails at once.
  const ChildRun chain = runLimited(folder, {"--max-sites", "500000", "chain.usda"});
  ASSERT_TRUE(chain.exited) << "signal " << chain.status;
  EXPECT_EQ(chain.status, 1);
  EXPECT_EQ(chain.err,
            "chain.usda:0:0: composing the stage takes more than 500000 sites, the "
            "limit of one stage\n");

  const auto start = std::chrono::steady_clock::now();
  const ChildRun fan = runLimited(folder, {kHostile + "fan_out_namespace.usda"});
  ASSERT_TRUE(fan.exited) << "signal " << fan.status;
  EXPECT_EQ(fan.status, 1);
  EXPECT_THAT(fan.err, HasSubstr("fan_out_namespace.usda:0:0: composing the stage takes more than "
                                 "10000000 sites"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(45));

  const std::string fifo = (folder.path() / "pipe.usda").string();
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  folder.write("devices.usda",
               "#usda 1.0\n(\n    subLayers = [@pipe.usda@, @/dev/zero@]\n)\n"
               "def \"A\" (references = @/dev/urandom@</A>) {}\n");
  const ChildRun devices = runLimited(folder, {"devices.usda"}, 1ull << 30, 20);
  ASSERT_TRUE(devices.exited) << "signal " << devices.status;
  EXPECT_EQ(devices.status, 0) << devices.err;
  EXPECT_THAT(devices.out, HasSubstr("'pipe.usda' is not a regular file"));
  EXPECT_THAT(devices.out, HasSubstr("'zero' is not a regular file"));
  EXPECT_THAT(devices.out, HasSubstr("'urandom' is not a regular file"));
  const ChildRun pipeScene = runLimited(folder, {"pipe.usda"}, 1ull << 30, 20);
  EXPECT_EQ(pipeScene.status, 1);
  EXPECT_EQ(pipeScene.err, "pipe.usda:0:0: is not a regular file\n");

  const ChildRun budget = runLimited(folder, {"--max-output-bytes", "1000", "devices.usda"});
  EXPECT_EQ(budget.status, 1);
  EXPECT_THAT(budget.err, HasSubstr("inspection is larger than the limit of 1000 bytes"));
}

TEST(HostileInspectorExecutable, OptionsEndAtTwoDashesAndConfinementAndLimitsAreOptions) {
  TempFolder folder;
  fs::copy(kHostile + "project", folder.path() / "project");
  fs::copy(kHostile + "outside", folder.path() / "outside");
  fs::copy(kHostile + "project/inside.usda", folder.path() / "--weird.usda");

  const ChildRun weird = runLimited(folder, {"--no-payloads", "--", "--weird.usda"});
  EXPECT_EQ(weird.status, 0) << weird.err;
  const auto decoded = editor::decodeJson<editor::StageInspection>(weird.out, "stage");
  ASSERT_TRUE(decoded.ok()) << decoded.error().description;
  EXPECT_EQ(decoded->sceneUri, (folder.path() / "--weird.usda").string());

  const ChildRun confined = runLimited(folder, {"--confine", "project", "project/scene.usda"});
  EXPECT_EQ(confined.status, 0) << confined.err;
  EXPECT_THAT(confined.out, HasSubstr("'../outside/secret.usda' is left out: it is outside"));
  EXPECT_EQ(confined.out.find("do not show"), std::string::npos);
  const ChildRun open = runLimited(folder, {"project/scene.usda"});
  EXPECT_NE(open.out.find("do not show"), std::string::npos);

  for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--weird.usda"},
                                                {"--max-prims", "0", "x.usda"},
                                                {"--max-sites", "many", "x.usda"},
                                                {"--max-layer-bytes"},
                                                {"--", "a.usda", "b.usda"}}) {
    const ChildRun run = runLimited(folder, wrong);
    EXPECT_EQ(run.status, 2) << wrong.front();
    EXPECT_THAT(run.err, HasSubstr("usage:")) << wrong.front();
  }
}

}  // namespace
}  // namespace orvan::engine
