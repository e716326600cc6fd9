/// What the caller of long work hears of it.
#pragma once

#include "study/export.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace insolate::study {

class OutputFolder;

/// Receives what a study reports while it runs. Every function does nothing unless it is
/// overridden, so a plain Progress is a silent one.
class INSOLATE_STUDY_EXPORT Progress {
public:
    virtual ~Progress() = default;

    /// A sentence about what happens.
    virtual void note(const std::string& /*text*/) {}
    /// A sentence that a person should not overlook.
    virtual void warn(const std::string& /*text*/) {}

    /// Begins counting `total` things, named in the plural.
    virtual void begin(std::size_t /*total*/, std::string_view /*things*/) {}
    /// So many more of them are done; called from any thread.
    virtual void advance(std::size_t /*count*/) {}
    /// Ends the count.
    virtual void end() {}

    /// The work holds this output folder from now on; null when it has let it go. A caller that
    /// must end the process at once may meanwhile call its abandon() from any thread.
    virtual void holdsFolder(OutputFolder* /*folder*/) {}
};

} // namespace insolate::study
