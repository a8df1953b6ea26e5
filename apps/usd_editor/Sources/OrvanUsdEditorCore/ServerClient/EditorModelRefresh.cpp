// Stage refresh: the editor keeps no live copy of the scene; after each change it asks again, and
// only the newest request's answer is ever applied.
#include <chrono>

#include <spdlog/spdlog.h>

#include "Application/EditorModel.h"
#include "Foundation/JsonDecoder.h"
#include "Foundation/Logging.h"
#include "Foundation/Text.h"
#include "ServerClient/Records/StageNormalization.h"
#include "ServerClient/VelkClientRequestError.h"
#include "ServerClient/RunProcess.h"
#include "Foundation/UrlComponents.h"

namespace orvan::editor {

namespace {

constexpr std::uint32_t kMaximumStaleStageRefusals = 7;
constexpr auto kStaleStageRetryDelay = std::chrono::milliseconds(250);
constexpr auto kSlowApplyThreshold = std::chrono::milliseconds(8);
constexpr auto kProjectDataAfterStage = std::chrono::milliseconds(40);

using PreparedStageResult = Result<std::shared_ptr<const PreparedStage>>;

// Off the main thread: run the inspector, decode, normalise and index its stage.
PreparedStageResult loadLocalStage(ProcessLauncher& launcher, const std::string& inspector,
                                   const std::string& scene, const std::stop_token& token) {
  Result<std::string> output = runLocalInspector(launcher, inspector, scene);
  if (!output.ok()) return output.error();
  if (token.stop_requested()) return Error::cancelled();
  Result<StageInspection> decoded = decodeJson<StageInspection>(*output, "stage");
  if (!decoded.ok()) return decoded.error();
  if (token.stop_requested()) return Error::cancelled();
  return PreparedStage::prepare(normalizedAuthoringStage(std::move(*decoded)));
}

struct RemoteStage {
  std::uint64_t revision = 0;
  std::shared_ptr<const PreparedStage> stage;
};
using RemoteStageResult = Result<RemoteStage>;

// Off the main thread: decode the stage endpoint's envelope, normalise and index its stage.
RemoteStageResult prepareRemoteStage(const std::string& body, const std::stop_token& token) {
  Result<RemoteStageResponse> decoded = decodeJson<RemoteStageResponse>(body);
  if (!decoded.ok()) return decoded.error();
  if (token.stop_requested()) return Error::cancelled();
  return RemoteStage{decoded->revision,
                     PreparedStage::prepare(normalizedAuthoringStage(std::move(decoded->stage)))};
}

}  // namespace

void EditorModel::refresh(StageRefreshOptions options) {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  const bool remote = !isBlank(configuration.projectServerURL) || !isBlank(configuration.remoteStageURL);
  // A full refresh in local mode also lists the project again; nothing else is held to drop yet.
  if (!options.preserveQueue && !remote) refreshProjectData(false);
  const std::uint64_t generation = ++refreshGeneration;
  if (currentStage().prims.empty()) initialStageLoadInFlight = true;
  const bool preserveDrafts = options.preserveDrafts.value_or(options.preserveQueue);
  const std::string inspector = configuration.resolvedPath(configuration.inspectorPath);
  const std::string remoteStageURL = !isBlank(configuration.projectServerURL)
                                         ? projectServerAPIURL("/api/stage").value_or("")
                                         : configuration.remoteStageURL;
  const std::string scene = configuration.scenePath;
  spdlog::info("stage refresh begin generation={} preserveQueue={} scene={} remoteStageURL={}",
               generation, options.preserveQueue, scene, remoteStageURL);
  refreshTask_.cancel();
  stageRefreshInFlight = true;

  if (remote) {
    refreshRemoteStage(remoteStageURL, generation, preserveDrafts);
    return;
  }

  const WeakLifetime weak = lifetime_.weak();
  ProcessLauncher& launcher = ports_.processes;
  refreshTask_.replace(postTaskAndReply(
      ports_.background, ports_.main,
      [&launcher, inspector, scene](std::stop_token token) {
        return loadLocalStage(launcher, inspector, scene, token);
      },
      [this, weak, generation, preserveDrafts](PreparedStageResult result) {
        if (!weak.isAlive() || generation != refreshGeneration) return;  // stale: dropped
        refreshTask_.clear();
        initialStageLoadInFlight = false;
        if (!result.ok()) {
          if (!result.error().isCancellation()) applyRefreshFailure(result.error(), generation);
          return;
        }
        applyRefreshResultNow(std::move(result.value()), std::nullopt, generation, preserveDrafts);
      }));
}

void EditorModel::refreshRemoteStage(const std::string& url, std::uint64_t generation,
                                     bool preserveDrafts) {
  if (!UrlComponents::parse(url)) {
    applyRefreshFailure(Error::editor(0, "Invalid remote stage URL"), generation);
    return;
  }
  // What the stage is for, taken now: the answer is cached under the scope it was asked for.
  const SharedClientScope scope = currentSharedScope();
  const WeakLifetime weak = lifetime_.weak();
  refreshTask_.replace(authorizedData(
      HttpRequest{.url = url, .timeout = std::chrono::seconds(60),
                  .maxResponseBytes = kLargeDocumentMaxResponseBytes},
      true,
      [this, weak, generation, preserveDrafts, scope](RequestResult<HttpResponse> answer) {
        if (!weak.isAlive() || generation != refreshGeneration) return;
        if (!answer.ok()) {
          if (answer.error().isCancellation()) return;
          initialStageLoadInFlight = false;
          applyRefreshFailure(answer.error(), generation);
          return;
        }
        if (answer->statusCode < 200 || answer->statusCode > 299) {
          initialStageLoadInFlight = false;
          applyRefreshFailure(Error::editor(answer->statusCode, "Remote stage returned HTTP " +
                                                                    std::to_string(answer->statusCode)),
                              generation);
          return;
        }
        const std::string etag = answer->header("ETag").value_or("");
        refreshTask_.replace(postTaskAndReply(
            ports_.background, ports_.main,
            [body = std::move(answer.value().body)](std::stop_token token) {
              return prepareRemoteStage(body, token);
            },
            [this, weak, generation, preserveDrafts, scope, etag](RemoteStageResult result) {
              if (!weak.isAlive() || generation != refreshGeneration) return;
              refreshTask_.clear();
              initialStageLoadInFlight = false;
              if (!result.ok()) {
                if (!result.error().isCancellation()) applyRefreshFailure(result.error(), generation);
                return;
              }
              if (!etag.empty()) {
                remoteStageCache.remember(remoteStageCacheKey(scope),
                                          {result->revision, result->stage->inspection, etag, 0});
              }
              applyRefreshResultNow(std::move(result->stage), result->revision, generation,
                                    preserveDrafts);
            }));
      }));
}

void EditorModel::applyRefreshResultNow(std::shared_ptr<const PreparedStage> prepared,
                                        std::optional<std::uint64_t> incomingRevision,
                                        std::uint64_t generation, bool preserveDrafts) {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  (void)preserveDrafts;
  const auto started = std::chrono::steady_clock::now();
  // A stage older than what the editor knows was typically served just before an accepted edit:
  // refuse it and ask again, but never more than eight times in a row.
  if (incomingRevision && *incomingRevision < revision.get() &&
      staleStageRefreshRetries <= kMaximumStaleStageRefusals) {
    stageRefreshInFlight = false;
    ++staleStageRefreshRetries;
    spdlog::info("stage refresh stale generation={} incoming={} held={} retry={}", generation,
                 *incomingRevision, revision.get(), staleStageRefreshRetries);
    scheduleStageRefresh(kStaleStageRetryDelay);
    return;
  }
  staleStageRefreshRetries = 0;
  spdlog::info("stage refresh apply generation={}", generation);

  storeStage(std::move(prepared));
  publishProjectAssetsFromStage(currentStage().assets);
  if (incomingRevision) revision.set(*incomingRevision);

  stageRefreshInFlight = false;
  initialProjectResponsive = true;
  initialProjectError.clear();
  initialProjectNeedsSignIn = false;
  connectionIssue.set(std::nullopt);
  spdlog::info("stage refresh completed generation={}", generation);
  // The project's data follows its stage: assets, workspaces and who is around.
  scheduleProjectMetadataRefresh(kProjectDataAfterStage);

  const auto elapsed = std::chrono::steady_clock::now() - started;
  std::string loaded = "Loaded composed OpenUSD stage";
  if (timingLogsEnabled && elapsed > kSlowApplyThreshold) {
    loaded += " (" +
              std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count()) +
              " ms)";
  }
  status.set(loaded);
}

void EditorModel::storeStage(std::shared_ptr<const PreparedStage> prepared) {
  std::shared_ptr<const PreparedStage> previous = stage.get();
  stage.set(std::move(prepared));
  scheduleClientDocumentRebuild(true, false);
  // A replaced stage of many prims takes a while to free; let a background thread do it.
  ports_.background.post([previous = std::move(previous)]() mutable { previous.reset(); });
}

void EditorModel::applyRefreshFailure(const RequestFailure& failure, std::uint64_t generation) {
  if (generation != refreshGeneration) return;
  initialStageLoadInFlight = false;
  spdlog::warn("stage refresh failure generation={} error={} (code {})", generation,
               textTail(failure.error.description), failure.error.code);
  projectConnectionInFlight = false;
  projectTransitionMessage.clear();
  stageRefreshInFlight = false;
  if (isUnauthorizedError(failure)) {
    requireVelkSignIn();
    return;
  }
  handleConnectionFailure(failure, "Refresh failed");
}

void EditorModel::handleConnectionFailure(const RequestFailure& failure, std::string_view prefix) {
  const Error& error = failure.error;
  const VelkConnectionIssue issue = velkConnectionIssue(failure);
  spdlog::warn("Velk editor connection failure code={} domain={} nativeCode={} diagnostic={}",
               issue.code, error.domain, error.code, textTail(issue.diagnostic));
  registerConnectionIssue(issue);
  status.set(prefix.empty() ? issue.message : std::string(prefix) + ": " + issue.message);
  if (!isBlank(configuration.remoteStageURL) && !initialProjectResponsive) {
    initialProjectResolved.set(false);
    initialProjectNeedsSignIn = issue.primaryAction == VelkConnectionAction::login;
    initialProjectError = issue.message;
  }
}

void EditorModel::registerConnectionIssue(const VelkConnectionIssue& issue) {
  if (issue.retryable || issue.blocksProject) connectionIssue.set(issue);
  if (issue.primaryAction == VelkConnectionAction::login) initialProjectNeedsSignIn = true;
}

void EditorModel::performConnectionAction(VelkConnectionAction action) {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  if (action == VelkConnectionAction::retry) {
    connectionIssue.set(std::nullopt);
    startInitialRefresh();
    return;
  }
  if (action == VelkConnectionAction::none) return;
  if (action == VelkConnectionAction::chooseProject) {
    markStartupResolvedWithoutProject();
    return;
  }
  if (action == VelkConnectionAction::login) {
    signInToVelk();
    return;
  }
  spdlog::info("connection action {} is not available in this build", static_cast<int>(action));
}

void EditorModel::dismissConnectionIssue() { connectionIssue.set(std::nullopt); }

void EditorModel::scheduleStageRefresh(Duration delay) {
  const WeakLifetime weak = lifetime_.weak();
  stageChangedRefreshTask_.replace(ports_.main.postAfter(delay, [this, weak] {
    if (!weak.isAlive()) return;
    stageChangedRefreshTask_.clear();
    refresh({.preserveQueue = true});
  }));
}

}  // namespace orvan::editor
