#include "bindings.h"

#include <span>

namespace insolate::python {

void giveOptions(const study::OptionTable& table, const OptionTexts& texts) {
    for (const auto& [name, values] : texts) {
        const study::Option* option = table.find(name);
        if (option == nullptr) {
            throw study::UsageError("--" + name + ": there is no such option");
        }
        study::OptionTable::give(*option, values);
    }
}

study::ModelOptions modelOptionsOf(const OptionTexts& texts) {
    study::ModelOptions options;
    study::OptionTable table;
    study::addModelOptions(table, options);
    giveOptions(table, texts);
    return options;
}

namespace {

template <typename Options, typename Add>
std::vector<study::Option> listed(Add&& add) {
    Options options;
    study::OptionTable table;
    add(table, options);
    return {table.options().begin(), table.options().end()};
}

} // namespace

void bindOptions(nb::module_& module) {
    nb::class_<study::Option>(module, "Option")
        .def_ro("name", &study::Option::name)
        .def_ro("help", &study::Option::help)
        .def_ro("type_name", &study::Option::typeName)
        .def_ro("choices", &study::Option::choices)
        .def_ro("usual", &study::Option::usual)
        .def_prop_ro("is_list", [](const study::Option& option) {
            return option.kind == study::Option::Kind::list;
        });
    module.def("run_options", [] { return listed<study::RunOptions>(study::addRunOptions); });
    module.def("sun_hours_options",
               [] { return listed<study::SunHoursOptions>(study::addSunHoursOptions); });
}

} // namespace insolate::python
