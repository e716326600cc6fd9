/// The options of a question, each defined once: the command line, study files and bindings to
/// other languages give them by the same names, with the same checks and texts.
#pragma once

#include "study/export.h"

#include "study/support/errors.h"

#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace insolate::study {

struct Option {
    enum class Kind { flag, value, list };

    std::string name; ///< without dashes
    Kind kind = Kind::value;
    std::string help = {};
    std::string typeName = {};             ///< what the help calls a value: "M", "FILE"
    std::vector<std::string> choices = {}; ///< the words it takes; empty: any text
    std::string usual = {}; ///< the default as the help shows it; empty: none to show
    char separator = '\0';  ///< between several values in one text, of lists
    /// Names of files that must exist are looked for beside the study file that holds them.
    enum class Path { none, input, output } path = Path::none;
    /// Texts of a path's option that name no file; null: there are none.
    bool (*isNoPath)(const std::string& text) = nullptr;
    /// Takes one value.
    /// @throws UsageError beginning with "--NAME"
    std::function<void(const std::string&)> take = {};
};

/// The options of one question, bound to the values that they set. Those must outlive the table.
class INSOLATE_STUDY_EXPORT OptionTable {
public:
    /// Each adds one option and gives it back for what is left to say of it.
    Option& flag(std::string name, bool& value, std::string help);
    Option& text(std::string name, std::string& value, std::string typeName, std::string help);
    Option& number(std::string name, double& value, std::string typeName, std::string help,
                   const std::string& wanted);
    Option& number(std::string name, std::optional<double>& value, std::string typeName,
                   std::string help, const std::string& wanted);
    Option& wholeNumber(std::string name, int& value, std::string typeName, std::string help,
                        const std::string& wanted);
    Option& file(std::string name, std::filesystem::path& value, std::string help);
    /// Any other one: `take` does the work.
    Option& add(Option option);

    [[nodiscard]] const std::deque<Option>& options() const { return m_options; }
    /// Has the texts that an option is given noted as well, each on a line of its own.
    /// @param asked outlives the table
    void noteTexts(std::string_view name, std::map<std::string, std::string>& asked);
    [[nodiscard]] const Option* find(std::string_view name) const;
    [[nodiscard]] std::vector<std::string> names() const;

    /// Gives an option its values; a flag takes "true" or "false".
    /// @throws UsageError beginning with "--NAME"
    static void give(const Option& option, std::span<const std::string> values);

private:
    std::deque<Option> m_options; ///< references to them hold
};

/// The number that the text is.
/// @param wanted what to give instead, "degrees"
/// @throws UsageError "--NAME: 'TEXT' is no number; give WANTED"
INSOLATE_STUDY_EXPORT double numberOf(const std::string& name, const std::string& text,
                                      const std::string& wanted);
INSOLATE_STUDY_EXPORT int wholeNumberOf(const std::string& name, const std::string& text,
                                        const std::string& wanted);
INSOLATE_STUDY_EXPORT std::size_t countOf(const std::string& name, const std::string& text,
                                          const std::string& wanted);

} // namespace insolate::study
