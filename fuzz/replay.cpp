// Every target over its seeds and former findings, without libFuzzer: replay TARGET FOLDER.
#define INSOLATE_REPLAY
#include "fuzz_baseline.cpp"
#include "fuzz_cityjson.cpp"
#include "fuzz_dates.cpp"
#include "fuzz_epw.cpp"
#include "fuzz_masks.cpp"
#include "fuzz_materials.cpp"
#include "fuzz_mesh.cpp"
#include "fuzz_models.cpp"
#include "fuzz_obj.cpp"
#include "fuzz_partial.cpp"
#include "fuzz_reply.cpp"
#include "fuzz_results.cpp"
#include "fuzz_sensors.cpp"
#include "fuzz_study.cpp"
#include "fuzz_wea.cpp"
#include "fuzz_weather_check.cpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

int main(int count, char** words) {
    using Target = int (*)(const std::uint8_t*, std::size_t);
    const std::map<std::string, Target> targets = {
        {"baseline", baseline}, {"cityjson", cityjson},
        {"dates", dates},       {"epw", epw},
        {"masks", masks},       {"materials", materials},
        {"mesh", mesh},         {"models", models},
        {"obj", obj},           {"partial", partial},
        {"reply", reply},       {"results", results},
        {"sensors", sensors},   {"study", study},
        {"wea", wea},           {"weather_check", weather_check}};
    if (count != 3 || !targets.contains(words[1])) {
        std::fprintf(stderr, "usage: replay TARGET FOLDER\n");
        return 2;
    }
    int seeds = 0;
    for (const auto& entry : std::filesystem::directory_iterator(words[2])) {
        std::printf("%s\n", entry.path().filename().c_str());
        std::fflush(stdout); // the last name is that of an input that ends the program
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        targets.at(words[1])(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++seeds;
    }
    return seeds > 0 ? 0 : 1;
}
