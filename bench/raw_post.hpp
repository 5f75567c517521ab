// POSTs made with libcurl alone: the baselines the SDK's own requests are
// measured against.
//
// RawPost: one easy handle that keeps its connection alive between performs.
//   RawPost post(url, {"Content-Type: application/json"}, body);
//   if (post.perform() != 200) std::abort();
//
// RawMultiPost: a batch of the same POST at once on one multi handle, over at
// most `connections` kept-alive connections, its easy handles reused.
//   RawMultiPost posts(url, headers, body, 64, 4);
//   if (posts.perform() != 64) std::abort();   // how many answered 2xx
#pragma once

#include <curl/curl.h>

#include <string>
#include <vector>

namespace kiv::bench {

class RawPost {
 public:
  RawPost(const std::string& url, const std::vector<std::string>& headerLines, std::string body)
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

class RawMultiPost {
 public:
  RawMultiPost(const std::string& url, const std::vector<std::string>& headerLines, std::string body, std::size_t batch,
               long connections)
      : body_(std::move(body)), multi_(curl_multi_init()), connections_(connections) {
    for (const auto& line : headerLines) headers_ = curl_slist_append(headers_, line.c_str());
    headers_ = curl_slist_append(headers_, "Expect:");  // as the SDK's transport sends them
    curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, connections);
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, connections);
    for (std::size_t i = 0; i < batch; ++i) {
      CURL* easy = curl_easy_init();
      curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
      curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers_);
      curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body_.c_str());
      curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body_.size()));
      curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &discard);
      curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
      easies_.push_back(easy);
    }
  }
  ~RawMultiPost() {
    for (CURL* easy : easies_) curl_easy_cleanup(easy);
    curl_multi_cleanup(multi_);
    curl_slist_free_all(headers_);
  }
  RawMultiPost(const RawMultiPost&) = delete;
  RawMultiPost& operator=(const RawMultiPost&) = delete;

  // Runs the whole batch; the number of transfers answered with a 2xx. At
  // most `connections` transfers are in the multi at once, the next added as
  // one ends: with the whole batch added up front, transfers waiting for a
  // connection slot were picked up late, now and then by tens of
  // milliseconds, which made the baseline swing far more than what it is a
  // baseline for.
  std::size_t perform() {
    std::size_t added = 0, answered = 0;
    const auto addNext = [&] {
      if (added == easies_.size()) return false;
      curl_multi_add_handle(multi_, easies_[added++]);
      return true;
    };
    for (long i = 0; i < connections_; ++i) addNext();
    int running = 0;
    do {
      curl_multi_perform(multi_, &running);
      int left = 0;
      while (CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        long status = 0;
        curl_easy_getinfo(message->easy_handle, CURLINFO_RESPONSE_CODE, &status);
        if (message->data.result == CURLE_OK && status / 100 == 2) ++answered;
        curl_multi_remove_handle(multi_, message->easy_handle);
        if (addNext()) ++running;  // started by the next perform
      }
      if (running > 0) curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
    } while (running > 0);
    return answered;
  }

 private:
  static std::size_t discard(char*, std::size_t size, std::size_t count, void*) { return size * count; }

  std::string body_;
  CURLM* multi_;
  long connections_;
  curl_slist* headers_ = nullptr;
  std::vector<CURL*> easies_;
};

}  // namespace kiv::bench
