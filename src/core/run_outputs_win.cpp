#include <cstdio>
#include <memory>

#include "core/run_outputs.h"

namespace vextra {

bool writeOutputFile(const std::wstring& path, std::string_view bytes) {
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    const std::unique_ptr<std::FILE, CloseFile> file(_wfopen(path.c_str(), L"wbN"));
    if (!file)
        return false;
    return std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size() &&
           std::fflush(file.get()) == 0;
}

}  // namespace vextra
