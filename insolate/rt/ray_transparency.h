/// The question a shading mask asks of the scene: how much light passes along a ray?
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/xyzf.h>

/// Ray-transparency interface. A host implements it, or uses one of the library's ray casters.
///
/// The order of the virtual operations is part of the binary contract. There is deliberately no
/// virtual destructor: the library never owns an object through this interface.
///
/// The library asks these three operations and nothing else of a host's object, no run-time type
/// information either: classes compiled with -fno-rtti serve as well as others. A caster that can
/// answer all cells of a mask in one call offers insolate::SkyVisibilityQuery
/// (insolate/rt/sky_visibility.h) from within getSurfaceDoubleSided().
class INSOLATE_EXPORT GetTransparencyValueOnRay {
public:
    GetTransparencyValueOnRay() = default;
    GetTransparencyValueOnRay(const GetTransparencyValueOnRay&) = default;

    /// Whether receiving surfaces are two-sided: rays are then cast on both sides of the normal.
    /// Asked once before the rays of a mask.
    virtual bool getSurfaceDoubleSided() = 0;

    /// Transparency along the ray from origin in the given direction (a unit vector), 0 (blocked)
    /// to 1 (clear). normal is the receiving surface's normal, or nullptr for a point without one.
    virtual float getTransparencyValue(const XYZf& origin, const XYZf& direction,
                                       const XYZf* normal) = 0;

    /// For the host, to prepare its object as it likes. The library never calls it; its own objects
    /// do nothing and give 0.
    virtual int initialise() = 0;

protected:
    GetTransparencyValueOnRay& operator=(const GetTransparencyValueOnRay&) = default;
    ~GetTransparencyValueOnRay() = default;
};
