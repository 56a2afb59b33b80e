#include "update/strict_url.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vextra {
namespace {

// From a block of exactly this size, so that a sanitizer sees a read past it.
bool accepted(std::string_view url) {
    const std::vector<char> exact(url.begin(), url.end());
    return isStrictHttpsUrl({exact.data(), exact.size()});
}

TEST(StrictUrl, IsAnHttpsAddressWithAHost) {
    for (const char* url :
         {"https://h", "https://h/", "https://a-b.c", "https://h?x", "https://h/?x", "https://h:1",
          "https://h:65535/x", "https://h:00443/x", "https://H.EXAMPLE/x", "https://1.2.3.4/x",
          "https://a/b@c:d", "https://h/?u=https://x@y", "https://[::1]:8443/a?b=%2F", "https://[::1]",
          "https://[::1]/", "https://[::ffff:1.2.3.4]?x", "https://[ABCDEF::abcdef]:1",
          "https://h/!$&'()*+,;=[]{}|^`\"<>~"})
        EXPECT_TRUE(accepted(url)) << url;
}

TEST(StrictUrl, BeginsWithExactlyHttps) {
    for (const char* url : {"", "h", "http://h", "HTTPS://h", "Https://h", "httpS://h", "https:/h", "https:h",
                            "//h", " https://h", "https//h", "xhttps://h", "https", "https:", "https:/"})
        EXPECT_FALSE(accepted(url)) << url;
}

TEST(StrictUrl, HasAHost) {
    for (const char* url : {"https://", "https:///x", "https://?x", "https://:443", "https://:443/x"})
        EXPECT_FALSE(accepted(url)) << url;
}

TEST(StrictUrl, HasNoFragment) {
    for (const char* url : {"https://h#", "https://h/#x", "https://h/?x#y", "https://#", "https://h/%23#"})
        EXPECT_FALSE(accepted(url)) << url;
}

TEST(StrictUrl, HasNoUserAndNoEscapeInItsAuthority) {
    for (const char* url : {"https://u@h", "https://u:p@h/x", "https://@h", "https://h@", "https://h%2Ex/",
                            "https://%68/", "https://h:4%343", "https://[::1%25eth0]/", "https://[::1]@h"})
        EXPECT_FALSE(accepted(url)) << url;
}

TEST(StrictUrl, HoldsPrintableAsciiWithoutABackslash) {
    for (int byte = 0; byte < 256; ++byte) {
        const bool allowed = byte >= 0x21 && byte <= 0x7E && byte != '\\' && byte != '#' && byte != '%';
        EXPECT_EQ(accepted(std::string("https://h/a") + static_cast<char>(byte)), allowed) << byte;
    }
}

TEST(StrictUrl, NamesItsHostInLettersDigitsDotsAndHyphens) {
    for (int byte = 0x21; byte < 0x7F; ++byte) {
        if (std::string_view("/?:").find(static_cast<char>(byte)) != std::string_view::npos)
            continue;
        const bool allowed = std::isalnum(byte) != 0 || byte == '.' || byte == '-';
        EXPECT_EQ(accepted(std::string("https://a") + static_cast<char>(byte) + "b"), allowed) << byte;
    }
}

TEST(StrictUrl, HasAHostThatNeitherBeginsNorEndsWithADotOrHyphen) {
    for (const char* url : {"https://-a.b", "https://a.b-", "https://.a", "https://a.", "https://a./x",
                            "https://-", "https://.", "https://a-:443", "https://a.:443"})
        EXPECT_FALSE(accepted(url)) << url;
}

TEST(StrictUrl, HasNoEmptyLabelInItsHost) {
    EXPECT_FALSE(accepted("https://a..b"));
    EXPECT_TRUE(accepted("https://a.-b"));  // the edges of the host are judged, not those of a label
    EXPECT_TRUE(accepted("https://a--b"));
}

TEST(StrictUrl, NamesAPortFrom1To65535OrNone) {
    for (const char* url : {"https://h:", "https://h:/x", "https://h:0", "https://h:00000", "https://h:65536",
                            "https://h:99999", "https://h:000443", "https://h:4a", "https://h:-1",
                            "https://h:+1", "https://h:1:2", "https://h::1", "https://[::1]:",
                            "https://[::1]:0", "https://[::1]:65536", "https://[::1]8443", "https://[::1]x"})
        EXPECT_FALSE(accepted(url)) << url;
}

TEST(StrictUrl, TakesABracketedAddressWithAColonInside) {
    for (const char* url : {"https://[]", "https://[", "https://[::1", "https://[1]", "https://[1.2.3.4]",
                            "https://[::g]", "https://[::1]]", "https://[[::1]]", "https://[::1-]",
                            "https://[::1/]", "https://a[::1]", "https://]::1["})
        EXPECT_FALSE(accepted(url)) << url;
    EXPECT_TRUE(accepted("https://[:]"));  // the resolver judges what is between the brackets
}

TEST(StrictUrl, HasWholeEscapesBehindTheHost) {
    for (const char* url :
         {"https://h/%7e", "https://h/%7E", "https://h?%aF", "https://h/%0a", "https://h/%01%10"})
        EXPECT_TRUE(accepted(url)) << url;
    for (const char* url : {"https://h/%", "https://h/%7", "https://h/%g0", "https://h/%0g", "https://h/%%41",
                            "https://h?%", "https://h/%41%4"})
        EXPECT_FALSE(accepted(url)) << url;
}

TEST(StrictUrl, HasNoZeroByteInDisguise) {
    EXPECT_FALSE(accepted("https://h/%00"));
    EXPECT_FALSE(accepted("https://h/a%00b"));
    EXPECT_FALSE(accepted("https://h?%41%00"));
    EXPECT_TRUE(accepted("https://h/%2500"));  // an escaped per cent sign
}

TEST(StrictUrl, Has8192BytesAtMost) {
    std::string url = "https://h/";
    url.resize(8192, 'a');
    EXPECT_TRUE(accepted(url));
    url += 'a';
    EXPECT_FALSE(accepted(url));
}

}  // namespace
}  // namespace vextra
