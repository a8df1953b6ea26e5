#include <gtest/gtest.h>

#include <string>

#include "ProjectsAndWorkspaces/HostedProject.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/HostedProjectRecords.h"

namespace orvan::editor {
namespace {

template <class T>
T decoded(const std::string& json) {
  Result<T> result = decodeJson<T>(json);
  EXPECT_TRUE(result.ok()) << (result.ok() ? "" : result.error().description) << "\n" << json;
  return result.ok() ? *result : T{};
}

TEST(HostedProjectTest, AProjectWithoutIdIsKnownByItsPath) {
  const auto catalogue = decoded<HostedProjectsResponse>(
      R"({"root":"/srv","current":"/srv/b","projects":[)"
      R"({"name":"A","path":"/srv/a","scene":"a.usda","current":false},)"
      R"({"id":"","name":"B","path":"/srv/b","scene":"b.usda","current":true,"members":{"owner":1}},)"
      R"({"id":"p-c","name":"C","path":"/srv/c","scene":"Scenes/c.usda","current":false,)"
      R"("role":"editor","canInvite":true,"members":{"total":5,"owner":1,"editor":4}}]})");
  ASSERT_EQ(catalogue.projects.size(), 3u);
  const HostedProject a = hostedProject(catalogue.projects[0]);
  const HostedProject b = hostedProject(catalogue.projects[1]);
  const HostedProject c = hostedProject(catalogue.projects[2]);

  EXPECT_EQ(a.stableId, "/srv/a");
  EXPECT_EQ(b.stableId, "/srv/b") << "an empty id identifies nothing";
  EXPECT_EQ(c.stableId, "p-c");

  EXPECT_EQ(b.memberCount, 0) << "only the total counts members";
  EXPECT_TRUE(b.isCurrent);
  EXPECT_EQ(c, (HostedProject{.stableId = "p-c",
                              .path = "/srv/c",
                              .name = "C",
                              .scenePath = "Scenes/c.usda",
                              .source = "server",
                              .isCurrent = false,
                              .role = "editor",
                              .canInvite = true,
                              .memberCount = 5}));
}

}  // namespace
}  // namespace orvan::editor
