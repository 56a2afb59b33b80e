#include "update/download_folder.h"

#include "base/text.h"

namespace vextra {

bool isDownloadFolderName(std::wstring_view name) {
    constexpr std::string_view kShape = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
    if (name.size() != kShape.size())
        return false;
    for (std::size_t i = 0; i < kShape.size(); ++i) {
        const char c = name[i] > 0 && name[i] <= 127 ? static_cast<char>(name[i]) : '\0';
        if (kShape[i] == 'x' ? hexDigitValue(c) < 0 : c != kShape[i])
            return false;
    }
    return true;
}

}  // namespace vextra
