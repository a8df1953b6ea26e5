// Stage refresh: the editor keeps no live copy of the scene; after each change it asks again, and
// only the newest request's answer is ever applied.
#include <chrono>

#include <spdlog/spdlog.h>

#include "Foundation/Logging.h"
#include "ServerClient/RunProcess.h"
#include "ServerClient/StageRefresher.h"
#include "ServerClient/VelkClientRequestError.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/URLComponents.h"
#include "orvan/wire/records/StageNormalization.h"

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
  if (!output.ok())
    return output.error();
  if (token.stop_requested())
    return Error::cancelled();
  Result<StageInspection> decoded = decodeJson<StageInspection>(*output, "stage");
  if (!decoded.ok())
    return decoded.error();
  if (token.stop_requested())
    return Error::cancelled();
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
  if (!decoded.ok())
    return decoded.error();
  if (token.stop_requested())
    return Error::cancelled();
  return RemoteStage{decoded->revision,
                     PreparedStage::prepare(normalizedAuthoringStage(std::move(decoded->stage)))};
}

}  // namespace

void StageRefresher::refresh(StageRefreshOptions options) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  const bool remote = context_.server.isHosted();
  // A full refresh in local mode also lists the project again; nothing else is held to drop yet.
  if (!options.preserveQueue && !remote)
    context_.projectData.refreshProjectData(false);
  if (!options.preserveQueue)
    hooks.queuedWorkDiscarded();
  const std::uint64_t generation = ++refreshGeneration;
  if (context_.stage.get()->stage().prims.empty())
    context_.startup.initialStageLoadInFlight = true;
  const bool preserveDrafts = options.preserveDrafts.value_or(options.preserveQueue);
  const EditorConfiguration& configuration = context_.configuration;
  const std::string inspector = configuration.resolvedPath(configuration.inspectorPath);
  const std::string remoteStageURL =
      !isBlank(context_.scope.projectServerURL())
          ? context_.server.projectServerAPIURL("/api/stage").value_or("")
          : context_.server.addresses.remoteStageURL;
  const std::string scene = context_.scope.scenePath();
  spdlog::info("stage refresh begin generation={} preserveQueue={} scene={} remoteStageURL={}",
               generation, options.preserveQueue, scene, remoteStageURL);
  refreshTask_.cancel();
  stageRefreshInFlight = true;

  if (remote) {
    refreshRemoteStage(remoteStageURL, generation, preserveDrafts);
    return;
  }

  const WeakLifetime weak = lifetime_.weak();
  ProcessLauncher& launcher = context_.processes;
  refreshTask_.replace(postTaskAndReply(
      context_.background, context_.main,
      [&launcher, inspector, scene](std::stop_token token) {
        return loadLocalStage(launcher, inspector, scene, token);
      },
      [this, weak, generation, preserveDrafts](PreparedStageResult result) {
        if (!weak.isAlive() || generation != refreshGeneration)
          return;  // stale: dropped
        refreshTask_.clear();
        context_.startup.initialStageLoadInFlight = false;
        if (!result.ok()) {
          if (!result.error().isCancellation())
            applyRefreshFailure(result.error(), generation);
          return;
        }
        applyRefreshResultNow(std::move(result.value()), std::nullopt, generation, preserveDrafts);
      }));
}

void StageRefresher::refreshRemoteStage(const std::string& url, std::uint64_t generation,
                                        bool preserveDrafts) {
  if (!URLComponents::parse(url)) {
    applyRefreshFailure(Error::editor(0, "Invalid remote stage URL"), generation);
    return;
  }
  // What the stage is for, taken now: the answer is cached under the scope it was asked for.
  const SharedClientScope scope = context_.scope.sharedScope();
  const WeakLifetime weak = lifetime_.weak();
  refreshTask_.replace(context_.server.authorizedData(
      HttpRequest{.url = url,
                  .timeout = std::chrono::seconds(60),
                  .maxResponseBytes = kLargeDocumentMaxResponseBytes},
      true, [this, weak, generation, preserveDrafts, scope](RequestResult<HttpResponse> answer) {
        if (!weak.isAlive() || generation != refreshGeneration)
          return;
        if (!answer.ok()) {
          if (answer.error().isCancellation())
            return;
          context_.startup.initialStageLoadInFlight = false;
          applyRefreshFailure(answer.error(), generation);
          return;
        }
        if (answer->statusCode < 200 || answer->statusCode > 299) {
          context_.startup.initialStageLoadInFlight = false;
          applyRefreshFailure(
              Error::editor(answer->statusCode,
                            "Remote stage returned HTTP " + std::to_string(answer->statusCode)),
              generation);
          return;
        }
        const std::string etag = answer->header("ETag").value_or("");
        refreshTask_.replace(postTaskAndReply(
            context_.background, context_.main,
            [body = std::move(answer.value().body)](std::stop_token token) {
              return prepareRemoteStage(body, token);
            },
            [this, weak, generation, preserveDrafts, scope, etag](RemoteStageResult result) {
              if (!weak.isAlive() || generation != refreshGeneration)
                return;
              refreshTask_.clear();
              context_.startup.initialStageLoadInFlight = false;
              if (!result.ok()) {
                if (!result.error().isCancellation())
                  applyRefreshFailure(result.error(), generation);
                return;
              }
              if (!etag.empty()) {
                context_.server.remoteStageCache.remember(
                    remoteStageCacheKey(scope),
                    {result->revision, result->stage->inspection, etag, 0});
              }
              applyRefreshResultNow(std::move(result->stage), result->revision, generation,
                                    preserveDrafts);
            }));
      }));
}

void StageRefresher::applyRefreshResultNow(std::shared_ptr<const PreparedStage> prepared,
                                           std::optional<std::uint64_t> incomingRevision,
                                           std::uint64_t generation, bool preserveDrafts) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  const auto started = std::chrono::steady_clock::now();
  // A stage older than what the editor knows was typically served just before an accepted edit:
  // refuse it and ask again, but never more than eight times in a row.
  Observable<std::uint64_t>& revision = context_.revision;
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

  context_.projectData.publishProjectAssetsFromStage(prepared->stage().assets);
  if (hooks.presentStage)
    hooks.presentStage(std::move(prepared), incomingRevision);
  else
    storeStage(std::move(prepared));
  if (incomingRevision)
    revision.set(*incomingRevision);
  hooks.stageApplied(preserveDrafts);

  stageRefreshInFlight = false;
  StartupState& startup = context_.startup;
  startup.initialProjectResponsive = true;
  startup.initialProjectError.clear();
  startup.initialProjectNeedsSignIn = false;
  startup.connectionIssue.set(std::nullopt);
  spdlog::info("stage refresh completed generation={}", generation);
  // The project's data follows its stage: assets, workspaces and who is around.
  context_.projectData.scheduleProjectMetadataRefresh(kProjectDataAfterStage);

  const auto elapsed = std::chrono::steady_clock::now() - started;
  std::string loaded = "Loaded composed OpenUSD stage";
  if (context_.timing.timingLogsEnabled && elapsed > kSlowApplyThreshold) {
    loaded +=
        " (" +
        std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count()) +
        " ms)";
  }
  context_.status.set(loaded);
  hooks.refreshApplied();
}

void StageRefresher::storeStage(std::shared_ptr<const PreparedStage> prepared) {
  std::shared_ptr<const PreparedStage> previous = context_.stage.get();
  context_.stage.set(std::move(prepared));
  context_.documents.scheduleClientDocumentRebuild(true, false);
  // A replaced stage of many prims takes a while to free; let a background thread do it.
  context_.background.post([previous = std::move(previous)]() mutable { previous.reset(); });
}

void StageRefresher::applyRefreshFailure(const RequestFailure& failure, std::uint64_t generation) {
  if (generation != refreshGeneration)
    return;
  context_.startup.initialStageLoadInFlight = false;
  spdlog::warn("stage refresh failure generation={} error={} (code {})", generation,
               textTail(failure.error.description), failure.error.code);
  context_.scope.projectConnectionInFlight = false;
  context_.scope.projectTransitionMessage.clear();
  stageRefreshInFlight = false;
  if (isUnauthorizedError(failure)) {
    hooks.signInRequired();
    return;
  }
  handleConnectionFailure(failure, "Refresh failed");
}

void StageRefresher::handleConnectionFailure(const RequestFailure& failure,
                                             std::string_view prefix) {
  const Error& error = failure.error;
  const VelkConnectionIssue issue = velkConnectionIssue(failure);
  spdlog::warn("Velk editor connection failure code={} domain={} nativeCode={} diagnostic={}",
               issue.code, error.domain, error.code, textTail(issue.diagnostic));
  StartupState& startup = context_.startup;
  startup.registerConnectionIssue(issue);
  context_.status.set(prefix.empty() ? issue.message : std::string(prefix) + ": " + issue.message);
  if (!isBlank(context_.server.addresses.remoteStageURL) && !startup.initialProjectResponsive) {
    startup.initialProjectResolved.set(false);
    startup.initialProjectNeedsSignIn = issue.primaryAction == VelkConnectionAction::login;
    startup.initialProjectError = issue.message;
  }
}

void StageRefresher::dropAnswersInFlight() {
  refreshTask_.cancel();
  ++refreshGeneration;
}

void StageRefresher::scheduleStageRefresh(Duration delay) {
  const WeakLifetime weak = lifetime_.weak();
  stageChangedRefreshTask_.replace(context_.main.postAfter(delay, [this, weak] {
    if (!weak.isAlive())
      return;
    stageChangedRefreshTask_.clear();
    refresh({.preserveQueue = true});
  }));
}

}  // namespace orvan::editor
