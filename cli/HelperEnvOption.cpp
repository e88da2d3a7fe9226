#include "cli/HelperEnvOption.h"

#include "hosts/fuse/mounting/OptionList.h"

#include <algorithm>

namespace cli {

namespace {

constexpr std::string_view optionName = "helper_env";

} // namespace

std::string takeSettings(std::string_view options, HelperSettings& settings) {
    std::string others;
    for (const std::string_view option : fusehost::optionsIn(options)) {
        if (option.substr(0, option.find('=')) == optionName)
            settings.push_back(
                helperSetting(fusehost::unescapedOption(option.substr(std::min(option.size(), optionName.size() + 1))),
                              "-o " + std::string(option)));
        else
            others.append(others.empty() ? "" : ",").append(option);
    }
    return others;
}

} // namespace cli
