#include "update/download_folder.h"

#include <gtest/gtest.h>

#include <string>

namespace vextra {
namespace {

TEST(DownloadFolderName, IsAGuidInBraces) {
    EXPECT_TRUE(isDownloadFolderName(L"{01234567-89ab-cdef-0123-456789abcdef}"));
    EXPECT_TRUE(isDownloadFolderName(L"{01234567-89AB-CDEF-0123-456789ABCDEF}"));
}

TEST(DownloadFolderName, IsNothingElse) {
    const std::wstring name = L"{01234567-89ab-cdef-0123-456789abcdef}";
    EXPECT_FALSE(isDownloadFolderName(L""));
    EXPECT_FALSE(isDownloadFolderName(name.substr(1)));
    EXPECT_FALSE(isDownloadFolderName(name + L"x"));
    EXPECT_FALSE(isDownloadFolderName(L"0123456789abcdef0123456789abcdef"));
    for (std::size_t i = 0; i < name.size(); ++i) {
        for (const wchar_t other : {L'g', L'\0', L'\\', L'\x0130', L'\xFF10'}) {
            std::wstring changed = name;
            changed[i] = other;
            EXPECT_FALSE(isDownloadFolderName(changed)) << i;
        }
    }
}

}  // namespace
}  // namespace vextra
