// A small scene for tests of objects outside the pipeline.
#pragma once
#include <map>
#include <memory>
#include <string>

#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A document with a server node and its scene. Objects are made from the catalogue, or given.
struct TestScene {
  host::Document document;
  host::BaseNode* server;
  std::unique_ptr<SulvaScene> scene;

  explicit TestScene(double cellSize = 0.1) {
    server = &CreateNode(document, *FindKind("server"), "sim", nullptr);
    scene = CreateScene(*server);
    scene->UpdateDomain(100, 1, cellSize);
    scene->mTime.stepDuration = 0.04;
    scene->mTime.fps = 25;
    scene->mThreadCount = 1;
  }

  template <class T>
  T& Add(const char* type, const char* name) {
    const NodeKind& kind = *FindKind(type);
    host::BaseNode& node = CreateNode(document, kind, name, server);
    scene->CreateObject(&node, kind.id);
    return dynamic_cast<T&>(*scene->FindObject(&node, kListAll));
  }
  /// Puts an object of a class of the test in the place of a kind's own.
  template <class T, class... Args>
  T& AddOwn(const char* type, const char* name, Args&&... args) {
    host::BaseNode& node = CreateNode(document, *FindKind(type), name, server);
    auto object = std::make_unique<T>(&node, scene.get(), std::forward<Args>(args)...);
    T& made = *object;
    scene->AddObject(made.GetListIndex(), std::move(object));
    return made;
  }

  static void Set(iBase& object, i32 id, host::Value value) {
    object.Node()->Set(id, std::move(value));
  }
  static void Link(iBase& object, i32 id, const iBase& target) {
    object.Node()->Set(id, host::Link{target.Node()->Id()});
  }
  static void Links(iBase& object, i32 id, std::initializer_list<const iBase*> targets) {
    host::InExcludeData list;
    for (const iBase* target : targets) list.entries.push_back({target->Node()->Id(), 0});
    object.Node()->Set(id, std::move(list));
  }

  /// The set-up passes and the dirty checks of a frame at another time than the last one.
  void SetUp() {
    scene->SetStage(kFinishVisual);
    scene->DispatchStage();
    scene->mFlags |= Scene::kTimeChanged;
    scene->SetStage(kStartSimulation);
    scene->DispatchStage();
  }
  /// One run of an object as in its stage, on `threads` workers.
  static void Run(iObject& object, i32 threads = 1) {
    object.mScene->mThreadCount = threads;
    object.Prepare();
    object.Begin();
    if (object.IsSequential() || object.IsIterative()) {
      object.Evaluate({});
    } else {
      ForEachShare(threads, nullptr,
                   [&](const EvaluationThreadData& share) { object.Evaluate(share); });
    }
    object.Finish();
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
