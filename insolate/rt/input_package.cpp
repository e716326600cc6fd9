#include <insolate/rt/input_package.h>

#include <insolate/platform/processor_count.h>
#include <insolate/rt/input_package_util.h>

#include <algorithm>

namespace insolate {
namespace {

constexpr std::size_t mailboxesPerBlock = 16384;

void append(RT::InputPackage& package, const double* coordinates) {
    RT::Triangle triangle = makeTriangle(coordinates);
    triangle.mailbox = package.mailboxes.take();
    package.triangles.push_back(triangle);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        package.boxMin[axis] = std::min(package.boxMin[axis], triangle.boxMin[axis]);
        package.boxMax[axis] = std::max(package.boxMax[axis], triangle.boxMax[axis]);
    }
}

} // namespace

std::span<std::uint32_t> MailboxPool::take() {
    const auto size = static_cast<std::size_t>(processorCount());
    if (m_blocks.empty() || m_taken == mailboxesPerBlock) {
        // The entries are written when handed out: an unused rest of a block costs no memory.
        m_blocks.push_back(
            std::make_unique_for_overwrite<std::uint32_t[]>(mailboxesPerBlock * size));
        m_taken = 0;
    }
    const std::span<std::uint32_t> mailbox(m_blocks.back().get() + m_taken * size, size);
    ++m_taken;
    std::fill(mailbox.begin(), mailbox.end(), noRay);
    return mailbox;
}

void MailboxPool::clear() {
    m_blocks.clear();
    m_taken = 0;
}

} // namespace insolate

namespace RT {

InputPackage& InputPackage::instance() {
    static InputPackage package;
    return package;
}

void InputPackageUitl::AddTriangle(double x0, double y0, double z0, double x1, double y1, double z1,
                                   double x2, double y2, double z2) {
    const double coordinates[9] = {x0, y0, z0, x1, y1, z1, x2, y2, z2};
    InputPackage& package = InputPackage::instance();
    insolate::append(package, coordinates);
    ++package.triangleCount;
}

void InputPackageUitl::AddTriangles(double* coordinates, int count) {
    if (coordinates == nullptr || count <= 0 || count % 9 != 0) {
        return;
    }
    InputPackage& package = InputPackage::instance();
    const int added = count / 9;
    // Exact room for the usual single call, geometric growth for many small ones.
    const std::size_t needed = package.triangles.size() + static_cast<std::size_t>(added);
    if (needed > package.triangles.capacity()) {
        package.triangles.reserve(std::max(needed, package.triangles.size() * 3 / 2));
    }
    for (int i = 0; i < added; ++i) {
        insolate::append(package, coordinates + static_cast<std::ptrdiff_t>(i) * 9);
    }
    package.triangleCount += added;
}

void InputPackageUitl::InflateBoundingBox() {
    InputPackage& package = InputPackage::instance();
    for (std::size_t axis = 0; axis < 3; ++axis) {
        package.boxMin[axis] -= 1.0;
        package.boxMax[axis] += 1.0;
    }
}

void InputPackageUitl::ResetInputPackage() {
    InputPackage& package = InputPackage::instance();
    std::vector<Triangle>().swap(package.triangles);
    package.mailboxes.clear();
    package.triangleCount = 0;
}

} // namespace RT
