/// The script that draws a page, as viewer/ was built.
#pragma once

#include <string_view>

namespace insolate::study {

std::string_view viewerScript();

} // namespace insolate::study
