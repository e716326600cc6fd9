/// The host classes keep one site and one scene for the whole process; a study holds them as long
/// as it uses either.
#pragma once

#include <memory>

namespace insolate::study {

/// Held by the methods other than hourly, for ESolarPosition::Global, and by rays through the
/// octree, for the triangles. The parts of one study share it.
class ProcessScene {
public:
    /// @throws UsageError while another study holds it
    static std::shared_ptr<const ProcessScene> take();
    ~ProcessScene();
    ProcessScene(const ProcessScene&) = delete;
    ProcessScene& operator=(const ProcessScene&) = delete;

private:
    ProcessScene() = default;
};

} // namespace insolate::study
