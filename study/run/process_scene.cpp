#include "study/run/process_scene.h"

#include "study/support/errors.h"

#include <atomic>

namespace insolate::study {

namespace {

std::atomic_flag processSceneIsHeld;

} // namespace

std::shared_ptr<const ProcessScene> ProcessScene::take() {
    if (processSceneIsHeld.test_and_set()) {
        throw UsageError("the methods other than hourly and --rays octree use one site and one "
                         "scene for the whole process, and another study uses them; wait for it to "
                         "end, or take --method hourly with --rays fast");
    }
    return std::shared_ptr<const ProcessScene>(new ProcessScene());
}

ProcessScene::~ProcessScene() {
    processSceneIsHeld.clear();
}

} // namespace insolate::study
