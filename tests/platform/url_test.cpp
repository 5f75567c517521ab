#include "platform/http/url.hpp"

#include <gtest/gtest.h>

#include <string>

namespace kiv {
namespace {

// Whether text forms a URL, its scheme, and whether it is one to send over HTTP.
TEST(Url, TellsWhetherTextFormsAUrlAndItsScheme) {
  const struct {
    std::string text;
    std::optional<std::string> scheme;  // absent: not a URL
    bool http = false;
  } cases[] = {{"https://backend.kiv.example/", "https", true},
               {"http://127.0.0.1:8080/bff/sessions?asyncAttempt=true", "http", true},
               {"wss://eu/ws", "wss", false},     // the streaming endpoint
               {"file:///error", "file", false},  // the unsendable fallback
               {"error", std::nullopt, false},    // no scheme is guessed
               {"https://back end.example/", std::nullopt, false},
               {"https://backend.example/\n", std::nullopt, false},
               {std::string("https://a.example\0.evil/", 25), std::nullopt, false},
               {"https://", std::nullopt, false},
               // libcurl would pass these on raw; they are no URI text.
               {"https://h.example/a\"b<c>", std::nullopt, false},
               {"https://h.example/a%zz", std::nullopt, false},
               {"https://h.example/a%4", std::nullopt, false},
               {"https://h.example/a#b#c", std::nullopt, false},
               {"https://h.example/a%4Fb/../c;d=e?f=g/h#i?j", "https", true},
               {"http://[::1]:8080/x", "http", true}};
  for (const auto& c : cases) {
    const auto parts = url::parse(c.text);
    EXPECT_EQ(parts ? std::optional(parts->scheme) : std::nullopt, c.scheme) << c.text;
    EXPECT_EQ(url::isHttp(c.text), c.http) << c.text;
  }
}

// A redirect target leaves https for http by its own scheme, however it is
// spelled; a relative or scheme-relative one keeps the scheme it came from.
TEST(Url, RedirectDowngradesOnlyFromHttpsToAnHttpTarget) {
  const std::string from = "https://backend.example/bff/sessions";
  EXPECT_TRUE(url::downgradesToHttp(from, "http://backend.example/x"));
  EXPECT_TRUE(url::downgradesToHttp("HTTPS://backend.example/", " \tHtTp://evil.example"));
  EXPECT_FALSE(url::downgradesToHttp(from, "https://other.example/"));
  EXPECT_FALSE(url::downgradesToHttp(from, "//other.example/x"));
  EXPECT_FALSE(url::downgradesToHttp(from, "/x?next=http://a"));
  EXPECT_FALSE(url::downgradesToHttp("http://127.0.0.1:8080/", "http://127.0.0.1:8080/x"));
}

TEST(Url, ReplacesTheQueryWithEncodedItemsInOrder) {
  EXPECT_EQ(url::replacingQueryItems("https://h.example/p?old=1", {{"b", "x&y=z"}, {"a", "1/2"}}),
            "https://h.example/p?b=x%26y%3dz&a=1%2f2");
  EXPECT_EQ(url::replacingQueryItems("https://h.example/p?old=1", {}), "https://h.example/p");
  EXPECT_EQ(url::replacingQueryItems("not a url", {{"a", "1"}}), std::nullopt);
}

}  // namespace
}  // namespace kiv
