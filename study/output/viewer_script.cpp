#include "study/output/viewer_script.h"

// The assembler takes the file in as it lies; INSOLATE_VIEWER_SCRIPT is its path, in quotes.
__asm__(".pushsection .rodata\n"
        ".balign 16\n"
        ".global insolateViewerScriptBegin\n"
        ".hidden insolateViewerScriptBegin\n"
        "insolateViewerScriptBegin:\n"
        ".incbin " INSOLATE_VIEWER_SCRIPT "\n"
        ".global insolateViewerScriptEnd\n"
        ".hidden insolateViewerScriptEnd\n"
        "insolateViewerScriptEnd:\n"
        ".byte 0\n"
        ".popsection\n");

extern "C" {
extern const char insolateViewerScriptBegin[];
extern const char insolateViewerScriptEnd[];
}

namespace insolate::study {

std::string_view viewerScript() {
    return {insolateViewerScriptBegin,
            static_cast<std::size_t>(insolateViewerScriptEnd - insolateViewerScriptBegin)};
}

} // namespace insolate::study
