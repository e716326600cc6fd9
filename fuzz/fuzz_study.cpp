// Any bytes as a study file for each subcommand: options are taken over or an error says where.
#include "memory_file.h"

#include "app/cli/commands.h"
#include "app/cli/study_file.h"
#include "study/support/errors.h"

INSOLATE_FUZZ_TARGET(study)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::app;
    using namespace insolate::study;
    const insolate::fuzz::MemoryFile file(bytes, size);
    static const Interruption interruption;
    for (auto* add : {addRunCommand, addSkyCommand}) {
        CLI::App app;
        add(app, interruption);
        CLI::App* command = app.get_subcommands([](CLI::App*) { return true; }).front();
        try {
            applyStudyFile(*command, file.name());
        } catch (const Error& error) {
            insolate::fuzz::requireMend(error);
        }
    }
    return 0;
}
