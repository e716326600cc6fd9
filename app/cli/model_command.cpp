#include "app/cli/arguments.h"
#include "app/cli/commands.h"
#include "app/terminal/standard_output.h"
#include "study/model/mesh_import.h"
#include "study/model/model_info.h"
#include "study/run/run_option_table.h"
#include "study/run/study_batch.h"
#include "study/support/errors.h"

#include <memory>
#include <optional>
#include <string>

#include <fmt/format.h>

namespace insolate::app {

void addModelCommand(CLI::App& app, Interruption& interruption) {
    CLI::App* command = app.add_subcommand("model", "Look into a model.");
    command->require_subcommand(1);

    struct Arguments {
        std::string file;
        std::string units = "m";
        std::string up;
        std::string lod;
        std::string materials;
        double north = 0.0;
        bool asJson = false;
    };
    auto arguments = std::make_shared<Arguments>();
    CLI::App* info = command->add_subcommand(
        "info", "Print objects, groups and materials, extent and likely unit, closed bodies and "
                "their winding, doubled and empty faces.");
    info->add_option("FILE", arguments->file, "Model: OBJ, STL, PLY, glTF, CityJSON, ...")
        ->required();
    info->add_option("--units", arguments->units, "Length unit of the model")
        ->type_name("NAME:{mm,cm,m,ft,in}")
        ->capture_default_str();
    info->add_option(
            "--up", arguments->up,
            fmt::format("Axis that points up in the file; by default {}", study::upAxisText()))
        ->type_name("AXIS:{y,z}");
    info->add_option("--lod", arguments->lod, "Level of detail of a CityJSON model: 1 or 2.2")
        ->type_name("LEVEL");
    info->add_option(
            "--materials", arguments->materials,
            "Say what the faces are taken for by this file of materials; without it, by default")
        ->type_name("FILE");
    info->add_option("--north", arguments->north,
                     "Where true north lies in plan: degrees clockwise from the model's +Y")
        ->check(numberCheck("degrees clockwise from the model's +Y"))
        ->type_name("DEG")
        ->capture_default_str();
    info->add_flag("--json", arguments->asJson, "Print JSON");
    info->callback([arguments, &interruption] {
        study::MeshImportOptions import;
        import.unit = study::lengthUnitOf("units", arguments->units);
        if (!arguments->up.empty()) {
            if (arguments->up != "y" && arguments->up != "z") {
                throw study::UsageError(fmt::format("--up: there is no {}; choose from y, z",
                                                    study::quoteText(arguments->up)));
            }
            import.up = arguments->up == "y" ? study::UpAxis::y : study::UpAxis::z;
        }
        import.lod = arguments->lod;
        const study::Mesh mesh = study::importMesh(arguments->file, import, interruption.token());
        study::ModelInfo found = study::modelInfo(mesh, study::place(arguments->file), import.unit,
                                                  interruption.token());
        std::optional<study::MaterialRules> rules;
        if (!arguments->materials.empty()) {
            rules = study::readMaterials(arguments->materials, study::studyFileKeys(),
                                         interruption.token());
        }
        study::Scene scene;
        study::appendTriangles(mesh, scene);
        found.uses = study::sceneMaterials(scene, rules ? &*rules : nullptr,
                                           study::MaterialRules::usualReflectance)
                         .uses;
        printResult(arguments->asJson ? study::modelInfoJson(found, arguments->north)
                                      : study::modelInfoText(found, arguments->north));
    });
}

} // namespace insolate::app
