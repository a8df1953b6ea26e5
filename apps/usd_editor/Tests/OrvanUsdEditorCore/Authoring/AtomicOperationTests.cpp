#include <gtest/gtest.h>

#include "Authoring/AtomicOperation.h"

namespace orvan::editor {
namespace {

using Args = std::vector<std::string>;
using PK = PrimOperationKind;
using CK = ComponentOperationKind;
using LK = LayerOperationKind;

PrimAtomicOperation prim(PK kind) {
  return {.kind = kind,
          .parentPath = "/World",
          .primName = "Box",
          .primitiveKind = "cube",
          .referenceURI = "store://ref",
          .payloadURI = "store://pay",
          .assetName = "Crate",
          .sourcePath = "/World/Old",
          .initialTranslation = std::nullopt,
          .instanceable = false};
}

Args withBase(Args tail) {
  Args all{"--json", "--author", "Ada", "--workspace", "main", "grpc://h:1", "7"};
  all.insert(all.end(), tail.begin(), tail.end());
  return all;
}

TEST(PrimAtomicOperationTest, BatchFieldsPerKind) {
  struct Row {
    PK kind;
    const char* fields;
  };
  const Row rows[] = {
      {PK::add, "add\t/World\tBox\tcube\tasset=Crate"},
      {PK::reference, "reference\t/World\tBox\tstore://ref"},
      {PK::payload, "payload\t/World\tBox\tstore://pay\tCrate"},
      {PK::deletePrim, "delete\t/World/Old"},
      {PK::reset, "reset\t/World/Old"},
      {PK::duplicate, "duplicate\t/World/Old\t/World\tBox"},
      {PK::reparent, "reparent\t/World/Old\t/World\tBox"},
      {PK::rename, "reparent\t/World/Old\t/World\tBox"},
      {PK::setInstanceable, "set-instanceable\t/World/Old\tfalse"},
  };
  for (const Row& row : rows) {
    const PrimAtomicOperation operation = prim(row.kind);
    EXPECT_EQ(PrimAtomicOperation::stdioBatchCommand(12, std::span(&operation, 1)),
              std::string("prims\t12\t1\t") + row.fields)
        << rawWord(row.kind);
  }
}

TEST(PrimAtomicOperationTest, OptionalTokensAndEmptyFields) {
  PrimAtomicOperation add = prim(PK::add);
  add.assetName.clear();
  EXPECT_EQ(PrimAtomicOperation::stdioBatchCommand(0, std::span(&add, 1)),
            "prims\t0\t1\tadd\t/World\tBox\tcube")
      << "no asset token without an asset name";

  PrimAtomicOperation payload = prim(PK::payload);
  payload.assetName.clear();
  EXPECT_EQ(PrimAtomicOperation::stdioBatchCommand(0, std::span(&payload, 1)),
            "prims\t0\t1\tpayload\t/World\tBox\tstore://pay\t")
      << "the payload's asset field is always written";

  PrimAtomicOperation flip = prim(PK::setInstanceable);
  flip.instanceable = true;
  flip.sourcePath.clear();
  EXPECT_EQ(PrimAtomicOperation::stdioBatchCommand(3, std::span(&flip, 1)),
            "prims\t3\t1\tset-instanceable\t\ttrue");
}

TEST(PrimAtomicOperationTest, TranslationTokenCountsOnlyThreeOrMoreValues) {
  struct Row {
    std::optional<std::vector<double>> translation;
    const char* suffix;
  };
  const Row rows[] = {
      {std::nullopt, ""},
      {std::vector<double>{1.0, 2.0}, ""},
      {std::vector<double>{1.0, 0.25, 1e-05}, "\ttranslation=1.0,0.25,1e-05"},
      {std::vector<double>{-3.0, 0.1, 100.0, 9.0}, "\ttranslation=-3.0,0.1,100.0"},
  };
  for (const Row& row : rows) {
    PrimAtomicOperation operation = prim(PK::deletePrim);
    operation.initialTranslation = row.translation;
    EXPECT_EQ(PrimAtomicOperation::stdioBatchCommand(1, std::span(&operation, 1)),
              std::string("prims\t1\t1\tdelete\t/World/Old") + row.suffix);
  }
}

TEST(PrimAtomicOperationTest, BatchOfSeveralIsNotFixedWidth) {
  PrimAtomicOperation first = prim(PK::add);
  first.initialTranslation = std::vector<double>{0.5, 0.0, 2.0};
  PrimAtomicOperation second = prim(PK::add);
  second.assetName.clear();
  second.primName = "Ball";
  const std::vector<PrimAtomicOperation> batch{first, second, prim(PK::deletePrim)};
  EXPECT_EQ(PrimAtomicOperation::stdioBatchCommand(40, batch),
            "prims\t40\t3\tadd\t/World\tBox\tcube\tasset=Crate\ttranslation=0.5,0.0,2.0"
            "\tadd\t/World\tBall\tcube\tdelete\t/World/Old");
}

TEST(PrimAtomicOperationTest, FreeTextIsCleanedOnTheLineButNotInArguments) {
  PrimAtomicOperation operation = prim(PK::add);
  operation.primName = "A\tB\nC\rD";
  operation.assetName = "x\ty";
  EXPECT_EQ(PrimAtomicOperation::stdioBatchCommand(1, std::span(&operation, 1)),
            "prims\t1\t1\tadd\t/World\tA B C D\tcube\tasset=x y");
  const Args args = operation.arguments("grpc://h:1", 7, "Ada", "");
  EXPECT_EQ(args, withBase({"--prim-op", "add", "/World", "A\tB\nC\rD", "cube", "x\ty"}));
  EXPECT_EQ(cleanedStdioField("\t\r\n"), "   ");
}

TEST(PrimAtomicOperationTest, ArgumentVectorPerKind) {
  struct Row {
    PK kind;
    Args tail;
  };
  const Row rows[] = {
      {PK::add, {"--prim-op", "add", "/World", "Box", "cube", "Crate"}},
      {PK::reference, {"--prim-op", "reference", "/World", "Box", "store://ref"}},
      {PK::payload, {"--prim-op", "payload", "/World", "Box", "store://pay", "Crate"}},
      {PK::deletePrim, {"--prim-op", "delete", "/World/Old"}},
      {PK::reset, {"--prim-op", "reset", "/World/Old"}},
      {PK::duplicate, {"--prim-op", "duplicate", "/World/Old", "/World", "Box"}},
      {PK::reparent, {"--prim-op", "reparent", "/World/Old", "/World", "Box"}},
      {PK::rename, {"--prim-op", "reparent", "/World/Old", "/World", "Box"}},
      {PK::setInstanceable, {"--prim-op", "set-instanceable", "/World/Old", "false"}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(prim(row.kind).arguments("grpc://h:1", 7, "Ada", "main"), withBase(row.tail))
        << rawWord(row.kind);
  }
  PrimAtomicOperation add = prim(PK::add);
  add.assetName.clear();
  add.initialTranslation = std::vector<double>{1.0, 2.5, -3.0, 8.0};
  EXPECT_EQ(add.arguments("grpc://h:1", 7, "Ada", "main"),
            withBase({"--prim-op", "add", "/World", "Box", "cube", "--initial-translation", "1.0",
                      "2.5", "-3.0"}));
  PrimAtomicOperation moved = prim(PK::reparent);
  moved.initialTranslation = std::vector<double>{1.0, 2.0, 3.0};
  EXPECT_EQ(moved.arguments("grpc://h:1", 7, "Ada", "main"),
            withBase({"--prim-op", "reparent", "/World/Old", "/World", "Box"}))
      << "only inserted prims carry a translation argument";
}

TEST(PrimAtomicOperationTest, PathsAfterTheOperation) {
  PrimAtomicOperation operation = prim(PK::add);
  operation.parentPath = "/";
  EXPECT_EQ(operation.createdPath(), "/Box");
  operation.parentPath = "";
  EXPECT_EQ(operation.createdPath(), "/Box");
  operation.parentPath = "/World/A";
  EXPECT_EQ(operation.createdPath(), "/World/A/Box");

  EXPECT_EQ(prim(PK::deletePrim).selectedPathAfterAccept(), "/World");
  EXPECT_EQ(prim(PK::setInstanceable).selectedPathAfterAccept(), std::nullopt);
  for (PK kind :
       {PK::add, PK::reference, PK::payload, PK::reset, PK::duplicate, PK::reparent, PK::rename}) {
    EXPECT_EQ(prim(kind).selectedPathAfterAccept(), "/World/Box") << rawWord(kind);
    EXPECT_EQ(AtomicOperation{prim(kind)}.selectedPathAfterAccept(), "/World/Box");
  }
  EXPECT_EQ(AtomicOperation{HistoryAtomicOperation{}}.selectedPathAfterAccept(), std::nullopt);
}

TEST(PrimAtomicOperationTest, KeysAndLabels) {
  PrimAtomicOperation add = prim(PK::add);
  EXPECT_EQ(add.replacementKey(),
            "prim:add:/World:Box:cube:store://ref:store://pay:Crate:/World/Old:[]");
  add.initialTranslation = std::vector<double>{1.0, 2.0, 3.0};
  EXPECT_EQ(add.replacementKey(),
            "prim:add:/World:Box:cube:store://ref:store://pay:Crate:/World/Old:[1.0, 2.0, 3.0]");

  PrimAtomicOperation on = prim(PK::setInstanceable);
  on.instanceable = true;
  EXPECT_EQ(on.replacementKey(), prim(PK::setInstanceable).replacementKey())
      << "a later flip replaces an earlier one";
  EXPECT_NE(prim(PK::rename).replacementKey(), prim(PK::reparent).replacementKey());
  EXPECT_NE(AtomicOperation{prim(PK::rename)}, AtomicOperation{prim(PK::reparent)});

  struct Row {
    PrimAtomicOperation operation;
    const char* label;
  };
  const Row rows[] = {
      {prim(PK::add), "cube Box"},
      {prim(PK::reference), "reference Box"},
      {prim(PK::payload), "payload Box"},
      {prim(PK::deletePrim), "delete /World/Old"},
      {prim(PK::reset), "reset /World/Old"},
      {prim(PK::duplicate), "duplicate /World/Old"},
      {prim(PK::reparent), "move /World/Old"},
      {prim(PK::rename), "rename /World/Old"},
      {prim(PK::setInstanceable), "de-instance /World/Old"},
      {on, "instance /World/Old"},
  };
  for (const Row& row : rows)
    EXPECT_EQ(AtomicOperation{row.operation}.label(), row.label);
}

ComponentAtomicOperation component(CK kind, std::string type = "Light",
                                   std::string property = "intensity") {
  return {.kind = kind,
          .entityPath = "/World/Lamp",
          .componentType = std::move(type),
          .propertyName = std::move(property),
          .value = "2.5"};
}

TEST(ComponentAtomicOperationTest, LinesArgumentsKeysPerKind) {
  struct Row {
    CK kind;
    const char* line;
    Args tail;
    const char* key;
  };
  const Row rows[] = {
      {CK::add,
       "component\t5\tadd\t/World/Lamp\tLight",
       {"--component-op", "add", "/World/Lamp", "Light"},
       "component:/World/Lamp:Light:lifecycle"},
      {CK::remove,
       "component\t5\tremove\t/World/Lamp\tLight",
       {"--component-op", "remove", "/World/Lamp", "Light"},
       "component:/World/Lamp:Light:lifecycle"},
      {CK::enable,
       "component\t5\tenable\t/World/Lamp\tLight\t2.5",
       {"--component-op", "enable", "/World/Lamp", "Light", "2.5"},
       "component:/World/Lamp:Light:enabled"},
      {CK::set,
       "component\t5\tset\t/World/Lamp\tLight\tintensity\t2.5",
       {"--component-op", "set", "/World/Lamp", "Light", "intensity", "2.5"},
       "component:/World/Lamp:Light:intensity"},
      {CK::reset,
       "component\t5\treset\t/World/Lamp\tLight\tintensity",
       {"--component-op", "reset", "/World/Lamp", "Light", "intensity"},
       "component:/World/Lamp:Light:intensity"},
      {CK::reorder,
       "component\t5\treorder\t/World/Lamp\tLight\t2.5",
       {"--component-op", "reorder", "/World/Lamp", "Light", "2.5"},
       "component:/World/Lamp:order"},
  };
  for (const Row& row : rows) {
    const ComponentAtomicOperation operation = component(row.kind);
    EXPECT_EQ(operation.stdioCommand(5), row.line);
    EXPECT_EQ(operation.arguments("grpc://h:1", 7, "Ada", ""), withBase(row.tail));
    EXPECT_EQ(AtomicOperation{operation}.replacementKey(), row.key);
    EXPECT_EQ(AtomicOperation{operation}.label(), "Light");
  }
  const std::vector<ComponentAtomicOperation> batch{component(CK::add), component(CK::set)};
  EXPECT_EQ(ComponentAtomicOperation::stdioBatchCommand(9, batch),
            "components\t9\t2\tadd\t/World/Lamp\tLight\tset\t/World/Lamp\tLight\tintensity\t2.5");
  ComponentAtomicOperation dirty = component(CK::set);
  dirty.value = "a\nb";
  EXPECT_EQ(dirty.stdioCommand(1), "component\t1\tset\t/World/Lamp\tLight\tintensity\ta b");
}

TEST(ComponentAtomicOperationTest, WhichWritesChangeTheStageStructure) {
  for (CK kind : {CK::add, CK::remove, CK::reset, CK::reorder})
    EXPECT_TRUE(component(kind).changesStageStructure()) << rawWord(kind);
  EXPECT_FALSE(component(CK::enable).changesStageStructure());
  EXPECT_FALSE(component(CK::set).changesStageStructure());
  EXPECT_TRUE(component(CK::set, "Script", "anything").changesStageStructure());
  EXPECT_TRUE(component(CK::set, "MeshAsset", "asset").changesStageStructure());
  EXPECT_FALSE(component(CK::set, "MeshAsset", "scale").changesStageStructure());
  EXPECT_TRUE(component(CK::set, "MaterialBinding", "material").changesStageStructure());
  EXPECT_FALSE(component(CK::set, "MaterialBinding", "asset").changesStageStructure());
}

TEST(LayerAtomicOperationTest, ArgumentsKeysAndLabelsPerKind) {
  struct Row {
    LayerAtomicOperation operation;
    Args tail;
    const char* key;
    const char* label;
  };
  const LayerAtomicOperation base{.kind = LK::add,
                                  .identifier = "anim.usda",
                                  .name = "Anim",
                                  .direction = "up",
                                  .muted = false,
                                  .moveRootContentToBaseLayer = false};
  auto with = [&](LK kind, bool muted = false, bool moveRoot = false) {
    LayerAtomicOperation operation = base;
    operation.kind = kind;
    operation.muted = muted;
    operation.moveRootContentToBaseLayer = moveRoot;
    return operation;
  };
  const Row rows[] = {
      {with(LK::add), {"--layer-op", "add", "Anim"}, "layer:add:Anim", "add layer"},
      {with(LK::add, false, true),
       {"--layer-op", "add", "Anim", "--move-root-content-to-base-layer"},
       "layer:add:Anim",
       "add layer"},
      {with(LK::remove),
       {"--layer-op", "remove", "anim.usda"},
       "layer:remove:anim.usda",
       "remove layer"},
      {with(LK::move),
       {"--layer-op", "move", "anim.usda", "up"},
       "layer:move:anim.usda:up",
       "move layer"},
      {with(LK::mute, true),
       {"--layer-op", "mute", "anim.usda", "true"},
       "layer:mute:anim.usda",
       "disable layer"},
      {with(LK::mute, false),
       {"--layer-op", "mute", "anim.usda", "false"},
       "layer:mute:anim.usda",
       "enable layer"},
      {with(LK::active), {"--layer-op", "active", "anim.usda"}, "layer:active", "set active layer"},
      {with(LK::clear),
       {"--layer-op", "clear", "anim.usda"},
       "layer:clear:anim.usda",
       "clear layer"},
      {with(LK::mergeDown),
       {"--layer-op", "merge-down", "anim.usda"},
       "layer:merge-down:anim.usda",
       "merge layer down"},
  };
  for (const Row& row : rows) {
    const AtomicOperation operation{row.operation};
    EXPECT_EQ(operation.arguments("grpc://h:1", 7, "Ada", "main"), withBase(row.tail));
    EXPECT_EQ(operation.replacementKey(), row.key);
    EXPECT_EQ(operation.label(), row.label);
  }
  LayerAtomicOperation other = with(LK::active);
  other.identifier = "other.usda";
  EXPECT_EQ(AtomicOperation{other}.replacementKey(),
            AtomicOperation{with(LK::active)}.replacementKey())
      << "only the last activation survives";
}

TEST(UsdPropertyAssetHistoryTest, LinesArgumentsKeysAndLabels) {
  const UsdPropertyAtomicOperation set{.kind = UsdPropertyOperationKind::set,
                                       .primPath = "/World/Box",
                                       .propertyName = "xformOp:translate",
                                       .value = "1,,2.5,\t3"};
  EXPECT_EQ(set.stdioCommand(4), "usd-property\t4\tset\t/World/Box\txformOp:translate\t1,,2.5, 3");
  EXPECT_EQ(
      set.arguments("grpc://h:1", 7, "Ada", "main"),
      withBase({"--usd-property-op", "set", "/World/Box", "xformOp:translate", "1", "2.5", "\t3"}))
      << "empty pieces are dropped, the others kept untouched";
  UsdPropertyAtomicOperation reset = set;
  reset.kind = UsdPropertyOperationKind::reset;
  EXPECT_EQ(reset.stdioCommand(4), "usd-property\t4\treset\t/World/Box\txformOp:translate");
  EXPECT_EQ(reset.arguments("grpc://h:1", 7, "Ada", "main"),
            withBase({"--usd-property-op", "reset", "/World/Box", "xformOp:translate"}));
  EXPECT_EQ(AtomicOperation{set}.replacementKey(), AtomicOperation{reset}.replacementKey());
  EXPECT_EQ(AtomicOperation{set}.replacementKey(), "usd-property:/World/Box:xformOp:translate");
  EXPECT_EQ(AtomicOperation{set}.label(), "set xformOp:translate");
  EXPECT_EQ(AtomicOperation{reset}.label(), "reset xformOp:translate");

  AssetAtomicOperation replace{.kind = AssetOperationKind::replace,
                               .name = "Crate",
                               .assetKind = "mesh",
                               .sourceURI = "file:///a.usd",
                               .storeURI = ""};
  EXPECT_EQ(replace.stdioCommand(2), "asset\t2\treplace\tCrate\tmesh\tfile:///a.usd");
  EXPECT_EQ(replace.arguments("grpc://h:1", 7, "Ada", "main"),
            withBase({"--asset-op", "replace", "Crate", "mesh", "file:///a.usd"}));
  replace.storeURI = "store://c";
  EXPECT_EQ(replace.stdioCommand(2), "asset\t2\treplace\tCrate\tmesh\tfile:///a.usd\tstore://c");
  EXPECT_EQ(replace.arguments("grpc://h:1", 7, "Ada", "main").back(), "store://c");
  EXPECT_EQ(AtomicOperation{replace}.replacementKey(), "asset:replace:Crate:store://c");
  EXPECT_EQ(AtomicOperation{replace}.label(), "replace Crate");
  const AssetAtomicOperation remove{.kind = AssetOperationKind::remove,
                                    .name = "Crate",
                                    .assetKind = "mesh",
                                    .sourceURI = "x",
                                    .storeURI = "y"};
  EXPECT_EQ(remove.stdioCommand(2), "asset\t2\tremove\tCrate");
  EXPECT_EQ(remove.arguments("grpc://h:1", 7, "Ada", "main"),
            withBase({"--asset-op", "remove", "Crate"}));
  EXPECT_EQ(AtomicOperation{remove}.label(), "remove Crate");

  const HistoryAtomicOperation undo{HistoryOperationKind::undo};
  const HistoryAtomicOperation redo{HistoryOperationKind::redo};
  EXPECT_EQ(undo.stdioCommand(3), "history\t3\tundo");
  EXPECT_EQ(redo.stdioCommand(3), "history\t3\tredo");
  EXPECT_EQ(undo.arguments("grpc://h:1", 7, "Ada", "main"), withBase({"--undo"}));
  EXPECT_EQ(redo.arguments("grpc://h:1", 7, "Ada", "main"), withBase({"--redo"}));
  EXPECT_EQ(AtomicOperation{undo}.replacementKey(), "history:undo");
  EXPECT_EQ(AtomicOperation{redo}.label(), "Redo");
}

TEST(EditClientBaseArgumentsTest, EmptyWorkspaceIsMain) {
  EXPECT_EQ(editClientBaseArguments("Ada", "", "grpc://h:1", 7), withBase({}));
  EXPECT_EQ(editClientBaseArguments("Ada", "feature", "grpc://h:1", 18446744073709551615u),
            (Args{"--json", "--author", "Ada", "--workspace", "feature", "grpc://h:1",
                  "18446744073709551615"}));
}

TEST(EditClientResponseTest, DecodesRequiredAndOptionalKeys) {
  const auto full = decodeEditClientResponse(
      R"({"accepted":true,"revision":18446744073709551615,"message":"ok","extra":[1],)"
      R"("createdPrims":[{"path":"/World/Box","entityId":42}]})");
  ASSERT_TRUE(full.ok()) << full.error().description;
  EXPECT_TRUE(full->accepted);
  EXPECT_EQ(full->revision, 18446744073709551615u);
  ASSERT_TRUE(full->createdPrims.has_value());
  EXPECT_EQ(full->createdPrims->at(0), (EditClientCreatedPrim{"/World/Box", 42}));

  const auto bare = decodeEditClientResponse(R"({"accepted":false,"revision":0,"message":""})");
  ASSERT_TRUE(bare.ok());
  EXPECT_FALSE(bare->createdPrims.has_value());

  for (const char* bad :
       {R"({"accepted":true,"revision":1})", R"({"revision":1,"message":""})",
        R"({"accepted":true,"revision":-1,"message":""})",
        R"({"accepted":true,"revision":1,"message":"","createdPrims":[{"path":"/A"}]})", "not json",
        ""}) {
    EXPECT_FALSE(decodeEditClientResponse(bad).ok()) << bad;
  }
}

}  // namespace
}  // namespace orvan::editor
