// Any bytes as a study file: options are taken over or an error says where.
#include "memory_file.h"

#include "study/run/run_option_table.h"
#include "study/run/study_batch.h"
#include "study/run/study_file.h"
#include "study/support/errors.h"

INSOLATE_FUZZ_TARGET(study)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    const insolate::fuzz::MemoryFile file(bytes, size);
    RunOptions options;
    OptionTable table;
    addRunOptions(table, options);
    try {
        StudyFile(file.name()).apply(table, {}, nullptr);
    } catch (const Error& error) {
        insolate::fuzz::requireFix(error);
    }
    try {
        for (const StudyTask& task : readStudyTasks(file.name())) {
            insolate::fuzz::require(task.name.find('/') == std::string::npos,
                                    "an analysis stays in its folder");
        }
    } catch (const Error& error) {
        insolate::fuzz::requireFix(error);
    }
    return 0;
}
