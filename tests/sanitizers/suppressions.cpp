// Settings of the sanitizers in every program that is built with them.
#define SANITIZER_TEXT extern "C" __attribute__((visibility("default"))) const char*

SANITIZER_TEXT __lsan_default_suppressions();
SANITIZER_TEXT __lsan_default_suppressions() {
    // A model never frees its points, nor the convenience mask its ray object: hosts may still hold
    // them. Fontconfig keeps its patterns until the process ends. Importers leave memory behind
    // where they give a file up; the process that they run in ends then.
    return "leak:EModel::addCalculationPoint\n"
           "leak:EShadingMask::calculate\n"
           "leak:libfontconfig\n"
           "leak:libassimp\n";
}

SANITIZER_TEXT __lsan_default_options();
SANITIZER_TEXT __lsan_default_options() {
    return "print_suppressions=0";
}

SANITIZER_TEXT __ubsan_default_options();
SANITIZER_TEXT __ubsan_default_options() {
    return "print_stacktrace=1";
}

SANITIZER_TEXT __tsan_default_suppressions();
SANITIZER_TEXT __tsan_default_suppressions() {
    // The installed oneTBB is not instrumented: what it does to hand its own task objects from
    // thread to thread is not seen.
    return "race:tbb::detail::d1::start_for\n";
}
