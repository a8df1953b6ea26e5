// Previews of property values: a transform moves the prim and what lies below it, a colour
// recolours it, clearing puts the scene back, a new state of the scene keeps them, and lines the
// viewport cannot show are refused.
#include <gtest/gtest.h>

#include <glm/gtc/matrix_transform.hpp>

#include "UsdText/LayerReader.h"
#include "UsdText/StageComposer.h"
#include "ViewportLink/ViewportSession.h"

namespace orvan::engine {
namespace {

constexpr const char* kScene = R"(#usda 1.0
def Xform "World"
{
    def Xform "Group"
    {
        double3 xformOp:translate = (10, 0, 0)
        uniform token[] xformOpOrder = ["xformOp:translate"]

        def Cube "Box"
        {
            double size = 2
            double3 xformOp:translate = (0, 1, 0)
            float3 xformOp:scale = (1, 1, 1)
            uniform token[] xformOpOrder = ["xformOp:translate", "xformOp:scale"]
            color3f[] primvars:displayColor = [(1, 0, 0)]
        }
    }
    def Cube "Other"
    {
        double size = 1
    }
}
)";

struct PreviewFixture : ::testing::Test {
  void SetUp() override {
    LayerReadResult read = readLayerText("/virtual/scene.usda", kScene);
    ASSERT_TRUE(read.ok()) << read.error->describe();
    StageOpenResult composed = composeStage(read.layer);
    ASSERT_TRUE(composed.ok());
    // As the runtime takes a state: the scene drawn up by the feed, the previews over it.
    stage = composed.stage;
    LoadedScene loaded = sceneFromStage(stage, 1);
    model.setStage(loaded.stage, tessellationForPrimCount(loaded.stage->prims.size()),
                   std::move(*loaded.scene));
    ASSERT_EQ(model.scene().objects.size(), 2u);
    baseColour = object("/World/Other").color;
  }
  const SceneObject& object(const std::string& path) {
    for (const SceneObject& o : model.scene().objects) {
      if (o.path == path)
        return o;
    }
    ADD_FAILURE() << "no object " << path;
    return model.scene().objects.front();
  }
  glm::vec3 positionOf(const std::string& path) { return glm::vec3(object(path).world[3]); }
  // A preview line as the runtime applies it; true when the scene model took it.
  bool preview(const std::string& line) {
    const ViewportLineParse parsed = parseViewportInwardLine(line);
    EXPECT_TRUE(parsed.command) << parsed.error;
    if (!parsed.command)
      return false;
    const ViewportPropertyPreview normal =
        normalisedPreview(std::get<ViewportPropertyPreview>(*parsed.command));
    if (normal.clear) {
      model.clearPreview(normal.entityPath, normal.componentType, normal.propertyName);
      return true;
    }
    return !model.applyPreview(normal.entityPath, normal.componentType, normal.propertyName,
                               normal.value);
  }

  std::shared_ptr<const Stage> stage;
  SceneModel model;
  glm::vec3 baseColour{0.0f};
};

TEST_F(PreviewFixture, ATransformPreviewMovesThePrimAndItsSubtreeAndClearingRestores) {
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(10, 1, 0));
  const std::uint64_t revision = model.revision();
  // Moving the parent carries the child along; the sibling stays.
  EXPECT_TRUE(preview("property-preview|/World/Group|Transform|translation|0,5,0|0"));
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(0, 6, 0));
  EXPECT_EQ(positionOf("/World/Other"), glm::vec3(0, 0, 0));
  EXPECT_EQ(model.revision(), revision) << "a move is not a rebuild";
  // A preview on the child as well applies inside the parent's; parentheses are read.
  EXPECT_TRUE(preview("property-preview|/World/Group/Box|Transform|translation|(1, 0, 0)|0"));
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(1, 5, 0));
  EXPECT_TRUE(preview("property-preview|/World/Group/Box|Transform|scale|2,2,2|0"));
  const SceneObject& box = object("/World/Group/Box");
  EXPECT_NEAR(box.bounds.max.x - box.bounds.min.x, 4.0f, 1e-4f);  // a size-2 cube, twice as large
  EXPECT_NEAR(model.scene().bounds.max.y, 7.0f, 1e-4f);
  // Clearing each value puts the authored one back.
  preview("property-preview|/World/Group|Transform|translation||1");
  preview("property-preview|/World/Group/Box|Transform|translation||1");
  preview("property-preview|/World/Group/Box|Transform|scale||1");
  EXPECT_TRUE(model.previews().empty());
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(10, 1, 0));
  EXPECT_NEAR(object("/World/Group/Box").bounds.max.x - object("/World/Group/Box").bounds.min.x,
              2.0f, 1e-4f);
}

TEST_F(PreviewFixture, AColourPreviewRecoloursOnlyThatPrimUnderEveryNameTheEditorUses) {
  EXPECT_TRUE(preview("property-preview|/World/Group/Box|RenderShape|color|0,1,0|0"));
  EXPECT_EQ(object("/World/Group/Box").color, glm::vec3(0, 1, 0));
  EXPECT_EQ(object("/World/Other").color, baseColour);
  preview("property-preview|/World/Group/Box|RenderShape|color||1");
  EXPECT_EQ(object("/World/Group/Box").color, glm::vec3(1, 0, 0));
  EXPECT_TRUE(preview("property-preview|/World/Other|Geometry|displayColor|(0, 0, 1)|0"));
  EXPECT_EQ(object("/World/Other").color, glm::vec3(0, 0, 1));
  preview("property-preview|/World/Other|Geometry|displayColor||1");
  EXPECT_EQ(object("/World/Other").color, baseColour);
}

TEST_F(PreviewFixture, ANewStateKeepsTheMovesWithoutARebuildAndRebuildsForOtherPreviews) {
  EXPECT_TRUE(preview("property-preview|/World/Group|Transform|translation|0,5,0|0"));
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(0, 6, 0));
  // The next state comes drawn up without previews; the move shows on it all the same.
  LoadedScene next = sceneFromStage(stage, 2);
  EXPECT_EQ(glm::vec3(next.scene->objects[0].world[3]), glm::vec3(10, 1, 0));
  const std::uint64_t revision = model.revision();
  model.setStage(next.stage, {}, std::move(*next.scene));
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(0, 6, 0));
  EXPECT_EQ(model.revision(), revision + 1);
  // With a colour previewed the scene is built again with it.
  EXPECT_TRUE(preview("property-preview|/World/Group/Box|RenderShape|color|0,1,0|0"));
  LoadedScene again = sceneFromStage(next.stage, 3);
  model.setStage(again.stage, {}, std::move(*again.scene));
  EXPECT_EQ(object("/World/Group/Box").color, glm::vec3(0, 1, 0));
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(0, 6, 0));
}

TEST_F(PreviewFixture, LinesTheViewportCannotShowAreRefused) {
  EXPECT_FALSE(preview("property-preview|/World/Group|Transform|shear|1,2,3|0"));
  EXPECT_FALSE(preview("property-preview|/World/Group|Physics|translation|1,2,3|0"));
  EXPECT_FALSE(preview("property-preview|/World/Group|Transform|translation|1,2|0"));
  EXPECT_FALSE(preview("property-preview|/World/Group|Transform|translation|1,2,3,4|0"));
  EXPECT_FALSE(preview("property-preview|/World/Group|Transform|translation|1,nan,3|0"));
  EXPECT_TRUE(model.previews().empty());
  // A preview of a prim that is not in the scene changes nothing drawn.
  EXPECT_FALSE(preview("property-preview|/World/Gone|Transform|translation|1,1,1|0"));
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(10, 1, 0));
}

}  // namespace
}  // namespace orvan::engine
