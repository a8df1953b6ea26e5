// Previews of property values: a transform moves the prim and what lies below it, a colour
// recolours it, clearing puts the scene back, and lines the viewport cannot show are refused.
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
    loaded = sceneFromStage(composed.stage, 1);
    base = looksOf(*loaded.scene);
    ASSERT_EQ(loaded.scene->objects.size(), 2u);
  }
  const SceneObject& object(const std::string& path) const {
    for (const SceneObject& o : loaded.scene->objects) {
      if (o.path == path)
        return o;
    }
    ADD_FAILURE() << "no object " << path;
    return loaded.scene->objects.front();
  }
  glm::vec3 positionOf(const std::string& path) const { return glm::vec3(object(path).world[3]); }
  void preview(const std::string& line) {
    const ViewportLineParse parsed = parseViewportInwardLine(line);
    ASSERT_TRUE(parsed.command) << parsed.error;
    EXPECT_TRUE(applyPreviewLine(previews, std::get<ViewportPropertyPreview>(*parsed.command)))
        << line;
    showPreviews(*loaded.scene, base, *loaded.stage, loaded.worlds, previews);
  }

  LoadedScene loaded;
  std::vector<ObjectLook> base;
  std::map<std::string, PrimPreview> previews;
};

TEST_F(PreviewFixture, ATransformPreviewMovesThePrimAndItsSubtreeAndClearingRestores) {
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(10, 1, 0));
  // Moving the parent carries the child along; the sibling stays.
  preview("property-preview|/World/Group|Transform|translation|0,5,0|0");
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(0, 6, 0));
  EXPECT_EQ(positionOf("/World/Other"), glm::vec3(0, 0, 0));
  // A preview on the child as well applies inside the parent's.
  preview("property-preview|/World/Group/Box|Transform|translation|(1, 0, 0)|0");
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(1, 5, 0));
  preview("property-preview|/World/Group/Box|Transform|scale|2,2,2|0");
  const SceneObject& box = object("/World/Group/Box");
  EXPECT_NEAR(box.bounds.max.x - box.bounds.min.x, 4.0f, 1e-4f);  // a size-2 cube, twice as large
  EXPECT_NEAR(loaded.scene->bounds.max.y, 7.0f, 1e-4f);
  // Clearing each value puts the authored one back.
  preview("property-preview|/World/Group|Transform|translation||1");
  preview("property-preview|/World/Group/Box|Transform|translation||1");
  preview("property-preview|/World/Group/Box|Transform|scale||1");
  EXPECT_TRUE(previews.empty());
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(10, 1, 0));
  EXPECT_NEAR(object("/World/Group/Box").bounds.max.x - object("/World/Group/Box").bounds.min.x,
              2.0f, 1e-4f);
}

TEST_F(PreviewFixture, AColourPreviewRecoloursOnlyThatPrim) {
  preview("property-preview|/World/Group/Box|RenderShape|color|0,1,0|0");
  EXPECT_EQ(object("/World/Group/Box").color, glm::vec3(0, 1, 0));
  EXPECT_EQ(object("/World/Other").color, base[1].color);
  preview("property-preview|/World/Group/Box|RenderShape|color||1");
  EXPECT_EQ(object("/World/Group/Box").color, glm::vec3(1, 0, 0));
}

TEST_F(PreviewFixture, LinesTheViewportCannotShowAreRefused) {
  const auto refused = [this](ViewportPropertyPreview line) {
    EXPECT_FALSE(applyPreviewLine(previews, line)) << line.propertyName << " " << line.value;
  };
  refused({.entityPath = "/World/Group",
           .componentType = "Transform",
           .propertyName = "shear",
           .value = "1,2,3",
           .clear = false});
  refused({.entityPath = "/World/Group",
           .componentType = "Physics",
           .propertyName = "translation",
           .value = "1,2,3",
           .clear = false});
  refused({.entityPath = "/World/Group",
           .componentType = "Transform",
           .propertyName = "translation",
           .value = "1,2",
           .clear = false});
  refused({.entityPath = "/World/Group",
           .componentType = "Transform",
           .propertyName = "translation",
           .value = "1,2,3,4",
           .clear = false});
  refused({.entityPath = "/World/Group",
           .componentType = "Transform",
           .propertyName = "translation",
           .value = "1,nan,3",
           .clear = false});
  EXPECT_TRUE(previews.empty());
  // A preview of a prim that is not in the scene changes nothing drawn.
  preview("property-preview|/World/Gone|Transform|translation|1,1,1|0");
  EXPECT_EQ(positionOf("/World/Group/Box"), glm::vec3(10, 1, 0));
}

}  // namespace
}  // namespace orvan::engine
