// A POST made with libcurl alone, over one easy handle that keeps its
// connection alive between performs: the baseline the SDK's own requests are
// measured against.
//
//   RawPost post(url, {"Content-Type: application/json"}, body);
//   if (post.perform() != 200) std::abort();
#pragma once

#include <curl/curl.h>

#include <initializer_list>
#include <string>

namespace kiv::bench {

class RawPost {
 public:
  RawPost(const std::string& url, std::initializer_list<std::string> headerLines, std::string body)
      : body_(std::move(body)), easy_(curl_easy_init()) {
    for (const auto& line : headerLines) headers_ = curl_slist_append(headers_, line.c_str());
    curl_easy_setopt(easy_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers_);
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, body_.c_str());
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body_.size()));
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &discard);
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
  }
  ~RawPost() {
    curl_slist_free_all(headers_);
    curl_easy_cleanup(easy_);
  }
  RawPost(const RawPost&) = delete;
  RawPost& operator=(const RawPost&) = delete;

  // The answer's status, or 0 when the transfer failed.
  long perform() {
    long status = 0;
    if (curl_easy_perform(easy_) != CURLE_OK) return 0;
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
    return status;
  }

 private:
  static std::size_t discard(char*, std::size_t size, std::size_t count, void*) { return size * count; }

  std::string body_;
  CURL* easy_;
  curl_slist* headers_ = nullptr;
};

}  // namespace kiv::bench
