// The Linux HTTP client, on libcurl.
//
// Sessions made with the same label and connection limit share one transfer
// thread driving a curl multi handle: their transfers run concurrently, share
// the multi's connection cache (so kept-alive connections are reused from one
// session to the next, as each attempt makes its own session) and complete on
// that thread. The threads live as long as the factory and the last session
// made by it. Ending a session cancels its own tasks only. The thread
// blocks SIGPIPE and every transfer sets CURLOPT_NOSIGNAL, so a peer that
// closes a connection never raises a signal in the host. Only http and https
// URLs are loaded; any other text completes with an error and no response.
//
// Header fields never change the framing of a request: a name that is not an
// HTTP token (empty, with white space, a colon or a line break) drops its
// header; in a value every control character but tab (CR, LF, NUL...) is sent
// as a space and surrounding spaces and tabs are trimmed, so a hostile value
// stays one value of its own header.
//
// Redirects are followed (at most 16) between http and https URLs, except
// from https down to http, at any hop of a chain: that transfer completes
// with `unsupportedURL` and the redirect answer as its response.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "kiv/platform/http.hpp"

namespace kiv {

class CurlHttpSessionFactory final : public HttpSessionFactory {
 public:
  // Initialises libcurl for the process on first construction. Peers are
  // verified against the system's certificate authorities, or only against
  // those in the PEM file `certificateAuthorities` (a test's own TLS server).
  explicit CurlHttpSessionFactory(std::optional<std::string> certificateAuthorities = std::nullopt);
  ~CurlHttpSessionFactory() override;
  std::shared_ptr<HttpSession> makeSession(HttpSessionConfiguration configuration) override;

 private:
  std::optional<std::string> certificateAuthorities_;
  std::mutex mutex_;
  // The transfer threads by label and connection limit (opaque here).
  std::map<std::pair<std::string, int>, std::shared_ptr<void>> engines_;
};

}  // namespace kiv
