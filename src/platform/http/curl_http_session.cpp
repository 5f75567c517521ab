#include "platform/http/curl_http_session.hpp"
#include "base/text.hpp"

#include <curl/curl.h>
#include <pthread.h>
#include <strings.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>
#include <vector>

#include "base/delay.hpp"
#include "base/no_destructor.hpp"
#include "base/process_exit.hpp"
#include "kiv/platform/platform.hpp"
#include "platform/http/url.hpp"

namespace kiv {
namespace {

constexpr long kIdlePollMilliseconds = 1000;  // curl shortens it when one of its timers is due
// While transfers run, the loop comes round at least this often, so that a
// transfer's idle limit is noticed soon after it passes.
constexpr long kActivePollMilliseconds = 100;
constexpr long kMaximumRedirects = 16;
constexpr double kDefaultTimeoutSeconds = 60.0;
// Loopback never goes through a proxy taken from the environment.
constexpr const char* kNoProxyHosts = "localhost,127.0.0.1,::1";

HttpErrorCode errorCodeFor(CURLcode code) {
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
      return HttpErrorCode::timedOut;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return HttpErrorCode::cannotFindHost;
    case CURLE_COULDNT_CONNECT:
      return HttpErrorCode::cannotConnectToHost;
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
      return HttpErrorCode::networkConnectionLost;
    case CURLE_UNSUPPORTED_PROTOCOL:
      return HttpErrorCode::unsupportedURL;
    case CURLE_URL_MALFORMAT:
      return HttpErrorCode::badURL;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_BAD_CONTENT_ENCODING:
      return HttpErrorCode::badServerResponse;
    case CURLE_TOO_MANY_REDIRECTS:
      return HttpErrorCode::httpTooManyRedirects;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_USE_SSL_FAILED:
      return HttpErrorCode::secureConnectionFailed;
    default:
      return HttpErrorCode::unknown;
  }
}

DataTaskResult errorResult(HttpErrorCode code, std::string detail = {}) {
  DataTaskResult result;
  result.error = HttpError(code, std::move(detail));
  return result;
}

// Header fields go into raw header lines, so a caller's text (a token read
// from the store, say) must never end a line or the request.

// A name is sent only when it is an HTTP token; anything else (empty, white
// space, a colon, a line break) is not a name and its header is dropped.
bool isFieldName(std::string_view name) {
  constexpr std::string_view kTokenPunctuation = "!#$%&'*+-.^_`|~";
  return !name.empty() && std::ranges::all_of(name, [&](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           kTokenPunctuation.find(c) != std::string_view::npos;
  });
}

// Control characters (CR, LF and NUL among them) become spaces, as a server
// receiving them would read them, and the surrounding white space a server
// would strip goes: libcurl takes a value of white space alone as a request
// to remove its own header of that name.
std::string fieldValue(std::string_view value) {
  std::string text(value);
  for (char& c : text) {
    if ((static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == '\x7f') c = ' ';
  }
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

class Engine;
class CurlDataTask;

// Set while a completion runs on this thread: a session ended from inside
// one cannot wait for the completions still to come, its own among them.
thread_local int tCompletionsRunning = 0;

// What one session's tasks share: its configuration, and the count of its
// resumed tasks whose completion has not returned yet, which ending the
// session waits for.
struct SessionState {
  explicit SessionState(HttpSessionConfiguration given) : configuration(std::move(given)) {}

  const HttpSessionConfiguration configuration;
  std::mutex mutex;
  std::condition_variable drained;
  bool ended = false;                             // guarded by mutex
  std::size_t unfinished = 0;                     // guarded by mutex
  std::vector<std::weak_ptr<CurlDataTask>> live;  // guarded by mutex; resumed tasks

  // False once the session has ended: the task is then not counted.
  bool admit(const std::shared_ptr<CurlDataTask>& task) {
    std::lock_guard lock(mutex);
    if (ended) return false;
    ++unfinished;
    std::erase_if(live, [](const auto& weak) { return weak.expired(); });
    live.push_back(task);
    return true;
  }
  void finished() {
    std::lock_guard lock(mutex);
    if (--unfinished == 0) drained.notify_all();
  }
};

class CurlDataTask final : public HttpDataTask, public std::enable_shared_from_this<CurlDataTask> {
 public:
  CurlDataTask(std::weak_ptr<Engine> engine, std::shared_ptr<SessionState> session, HttpRequest request,
               DataTaskCompletion completion)
      : request_(std::move(request)),
        session_(std::move(session)),
        engine_(std::move(engine)),
        completion_(std::move(completion)) {}

  void resume() override;
  void cancel() override;
  // Marks the task cancelled without waking anyone: for ending a session,
  // which wakes the thread once for all its tasks.
  void requestCancel() { cancelRequested_.store(true); }

  bool cancelRequested() const { return cancelRequested_.load(); }
  const HttpSessionConfiguration& configuration() const { return session_->configuration; }

  // Runs the completion unless it already ran; releases what it captured.
  void complete(DataTaskResult result) {
    if (completed_.exchange(true)) return;
    auto completion = std::move(completion_);
    completion_ = nullptr;
    ++tCompletionsRunning;
    try {
      if (completion) completion(std::move(result));
    } catch (...) {
      // A throwing completion must not take the session's thread down.
    }
    --tCompletionsRunning;
    if (counted_) session_->finished();
  }

  // Transfer state, touched only on the session's thread.
  const HttpRequest request_;
  std::chrono::steady_clock::time_point lastActivity;
  curl_off_t bytesMoved = 0;
  bool idleTimedOut = false;
  std::size_t maximumBody = 0;
  bool bodyTooLarge = false;
  std::optional<std::string> refusedRedirect;  // the Location of a hop from https down to http
  CURL* easy = nullptr;
  curl_slist* headerLines = nullptr;
  std::string receivedBody;
  HttpHeaders receivedHeaders;
  char errorBuffer[CURL_ERROR_SIZE] = {};

 private:
  // Completes on the pool: never on the thread that resumed the task.
  void completeElsewhere(HttpErrorCode code);

  const std::shared_ptr<SessionState> session_;
  std::weak_ptr<Engine> engine_;
  DataTaskCompletion completion_;
  bool counted_ = false;  // admitted by its session; set before it can complete
  std::atomic<bool> resumed_{false};
  std::atomic<bool> cancelRequested_{false};
  std::atomic<bool> completed_{false};
};

thread_local const Engine* tCurrentEngine = nullptr;

// A transfer thread and its curl multi handle, with the multi's connection
// cache: shared by every session of the factory made with the same label and
// connection limit, so that a session made for the next attempt reuses the
// connections of the last one instead of opening its own (and starting a
// thread). Other threads talk to it only through submit() and
// wakeForCancel(); everything else runs on the thread.
class Engine : public std::enable_shared_from_this<Engine> {
 public:
  Engine(std::string label, int maximumConnectionsPerHost, std::optional<std::string> certificateAuthorities)
      : label_(std::move(label)), certificateAuthorities_(std::move(certificateAuthorities)) {
    multi_ = curl_multi_init();
    const long perHost = std::max(1, maximumConnectionsPerHost);
    curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, perHost);
    // By default the cache shrinks with the number of transfers in flight,
    // which would close kept-alive connections between requests.
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, std::max(16L, 2 * perHost));
  }

  ~Engine() {
    if (multi_) curl_multi_cleanup(multi_);
  }

  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  void start();

  bool isCurrentThread() const { return tCurrentEngine == this; }

  // False once the session has ended.
  bool submit(std::shared_ptr<CurlDataTask> task) {
    std::lock_guard lock(mutex_);
    if (stopping_) return false;
    inbox_.push_back(std::move(task));
    curl_multi_wakeup(multi_);
    return true;
  }

  void wakeForCancel() {
    std::lock_guard lock(mutex_);
    if (stopping_) return;  // the shutdown cancels whatever is still running
    cancelPending_ = true;
    curl_multi_wakeup(multi_);
  }

  // Ends the thread after it has completed every task with `cancelled`. The
  // first caller waits for that, unless it is the thread itself (a completion
  // dropping the last reference to its session), which cannot join itself.
  void stop() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
      curl_multi_wakeup(multi_);
      if (joinClaimed_) return;
      joinClaimed_ = true;
    }
    if (isCurrentThread()) {
      thread_.detach();
    } else if (thread_.joinable()) {
      thread_.join();
    }
  }

  // At exit: like stop(), but a thread that has not ended within the bound
  // (a completion waiting on the exiting thread) is left to the end of the
  // process.
  void stopForExit() {
    std::unique_lock lock(mutex_);
    stopping_ = true;
    curl_multi_wakeup(multi_);
    if (joinClaimed_) return;
    joinClaimed_ = true;
    if (isCurrentThread()) {
      thread_.detach();
      return;
    }
    const bool ended = ended_.wait_for(lock, process_exit::kBound, [this] { return threadEnded_; });
    lock.unlock();
    if (ended) {
      thread_.join();
    } else {
      thread_.detach();
    }
  }

 private:
  void run() {
    // OpenSSL writes to sockets without MSG_NOSIGNAL; a peer that closed the
    // connection must cost this transfer an error, not the host its process.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    pthread_setname_np(pthread_self(), label_.substr(0, 15).c_str());
    tCurrentEngine = this;

    for (;;) {
      std::vector<std::shared_ptr<CurlDataTask>> incoming;
      bool cancels = false;
      {
        std::lock_guard lock(mutex_);
        if (stopping_) break;
        incoming.swap(inbox_);
        cancels = std::exchange(cancelPending_, false);
      }
      for (auto& task : incoming) startTransfer(task);
      if (cancels) cancelRequestedTransfers();
      int running = 0;
      curl_multi_perform(multi_, &running);
      finishDoneTransfers();
      curl_multi_poll(multi_, nullptr, 0, active_.empty() ? kIdlePollMilliseconds : kActivePollMilliseconds, nullptr);
    }
    shutDown();
    std::lock_guard lock(mutex_);
    threadEnded_ = true;
    ended_.notify_all();
  }

  void shutDown() {
    std::vector<std::shared_ptr<CurlDataTask>> waiting;
    {
      std::lock_guard lock(mutex_);
      waiting.swap(inbox_);
    }
    for (auto& task : waiting) task->complete(errorResult(HttpErrorCode::cancelled));
    auto running = std::move(active_);
    active_.clear();
    for (auto& [easy, task] : running) {
      release(*task);
      task->complete(errorResult(HttpErrorCode::cancelled));
    }
  }

  void startTransfer(const std::shared_ptr<CurlDataTask>& task) {
    if (task->cancelRequested()) {
      task->complete(errorResult(HttpErrorCode::cancelled));
      return;
    }
    // Checked here so that the transport and url::parse agree on what is a
    // URL, whatever libcurl would make of a text without a scheme.
    if (!url::isHttp(task->request_.url)) {
      const bool isURL = url::parse(task->request_.url).has_value();
      task->complete(errorResult(isURL ? HttpErrorCode::unsupportedURL : HttpErrorCode::badURL, task->request_.url));
      return;
    }
    task->easy = curl_easy_init();
    if (task->easy == nullptr || !configure(*task) || curl_multi_add_handle(multi_, task->easy) != CURLM_OK) {
      release(*task);
      task->complete(errorResult(HttpErrorCode::unknown, "the transfer could not be set up"));
      return;
    }
    active_.emplace(task->easy, task);
  }

  static size_t onBody(char* data, size_t size, size_t count, void* context) {
    auto* task = static_cast<CurlDataTask*>(context);
    task->lastActivity = std::chrono::steady_clock::now();
    if (size * count > task->maximumBody - task->receivedBody.size()) {
      task->bodyTooLarge = true;
      return 0;  // ends the transfer with a write error
    }
    task->receivedBody.append(data, size * count);
    return size * count;
  }

  // The request's time-out is an idle limit, as on the phone platform: a
  // transfer fails once no byte has moved either way for that long, however
  // long a slow but steady answer takes as a whole.
  static int onProgress(void* context, curl_off_t, curl_off_t downloaded, curl_off_t, curl_off_t uploaded) {
    auto* task = static_cast<CurlDataTask*>(context);
    const auto now = std::chrono::steady_clock::now();
    if (downloaded + uploaded != task->bytesMoved) {
      task->bytesMoved = downloaded + uploaded;
      task->lastActivity = now;
      return 0;
    }
    if (now - task->lastActivity < idleLimit(task->request_)) return 0;
    task->idleTimedOut = true;
    return 1;
  }

  static std::chrono::duration<double> idleLimit(const HttpRequest& request) {
    return std::chrono::duration<double>(request.timeoutSeconds > 0 ? request.timeoutSeconds : kDefaultTimeoutSeconds);
  }

  static size_t onHeaderLine(char* data, size_t size, size_t count, void* context) {
    auto& task = *static_cast<CurlDataTask*>(context);
    task.lastActivity = std::chrono::steady_clock::now();
    auto& headers = task.receivedHeaders;
    std::string_view line(data, size * count);
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.remove_suffix(1);
    if (line.empty()) {
      // The end of one response's header: libcurl has not followed its
      // redirect yet, so a hop down to http is stopped before it is made.
      if (auto location = downgradingRedirect(task)) {
        task.refusedRedirect = std::move(location);
        return 0;
      }
    } else if (line.starts_with("HTTP/")) {
      headers.clear();  // a new response: after a redirect or an interim 1xx answer
    } else if (line.front() == ' ' || line.front() == '\t') {
      if (!headers.empty()) headers.back().value += " " + std::string(trimmed(line, " \t"));  // folded line
    } else if (const auto colon = line.find(':'); colon != std::string_view::npos) {
      headers.push_back({std::string(line.substr(0, colon)), std::string(trimmed(line.substr(colon + 1), " \t"))});
    }
    return size * count;
  }

  // The Location of the redirect answer whose header just ended when it
  // leads from https to http. libcurl's redirect protocols are fixed per
  // transfer, so on their own they cannot refuse http only once a chain
  // has reached https (http -> https -> http).
  static std::optional<std::string> downgradingRedirect(const CurlDataTask& task) {
    long status = 0;
    char* current = nullptr;
    if (curl_easy_getinfo(task.easy, CURLINFO_RESPONSE_CODE, &status) != CURLE_OK || status < 300 || status > 399 ||
        curl_easy_getinfo(task.easy, CURLINFO_EFFECTIVE_URL, &current) != CURLE_OK || current == nullptr) {
      return std::nullopt;
    }
    auto location = headerValue(task.receivedHeaders, "Location");
    if (!location || !url::downgradesToHttp(current, *location)) return std::nullopt;
    return location;
  }

  bool configure(CurlDataTask& task) const {
    CURL* easy = task.easy;
    const HttpRequest& request = task.request_;
    const auto milliseconds = [](double seconds) {
      return std::max(
          1L,
          static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(delayFromSeconds(seconds)).count()));
    };
    const long idleMs = milliseconds(idleLimit(request).count());
    const long resourceMs = milliseconds(task.configuration().timeoutIntervalForResource);
    task.lastActivity = std::chrono::steady_clock::now();

    bool ok = curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str()) == CURLE_OK;
    // The path goes out as built: no dot segments folded away.
    ok = ok && curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https") == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https") == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_MAXREDIRS, kMaximumRedirects) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_NOPROXY, kNoProxyHosts) == CURLE_OK;
    if (certificateAuthorities_) {
      ok = ok && curl_easy_setopt(easy, CURLOPT_CAINFO, certificateAuthorities_->c_str()) == CURLE_OK;
      ok = ok && curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr) == CURLE_OK;
    }
    ok = ok && curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, resourceMs) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, idleMs) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &Engine::onProgress) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &task) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, task.errorBuffer) == CURLE_OK;
    // A length announced beyond the bound ends the transfer before the body;
    // one sent without a length is counted as it arrives (onBody).
    task.maximumBody = task.configuration().maximumResponseBodyBytes;
    ok = ok && curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(task.maximumBody)) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Engine::onBody) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_WRITEDATA, &task) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &Engine::onHeaderLine) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_HEADERDATA, &task) == CURLE_OK;
    // No CURLOPT_COOKIEFILE: the cookie engine stays off, so cookies are
    // neither stored nor sent.

    const std::string& method = request.method.empty() ? std::string("GET") : request.method;
    const bool sendsBody = method != "GET" && method != "HEAD" && request.body.has_value();
    if (method == "GET") {
      ok = ok && curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L) == CURLE_OK;
    } else if (method == "HEAD") {
      ok = ok && curl_easy_setopt(easy, CURLOPT_NOBODY, 1L) == CURLE_OK;
    } else if (method == "POST" || sendsBody) {
      // The bytes are the task's own and outlive the transfer; the size is
      // set first so that a body holding NUL bytes is sent whole.
      const std::string& body = request.body ? *request.body : std::string();
      ok = ok && curl_easy_setopt(easy, CURLOPT_POST, 1L) == CURLE_OK;
      ok = ok && curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size())) == CURLE_OK;
      ok = ok && curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body ? request.body->data() : "") == CURLE_OK;
    }
    if (method != "GET" && method != "HEAD" && method != "POST") {
      ok = ok && curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str()) == CURLE_OK;
    }

    bool hasContentType = false;
    bool hasExpect = false;
    for (const auto& header : request.headers) {
      if (!isFieldName(header.name)) continue;
      const std::string& name = header.name;
      const std::string value = fieldValue(header.value);
      hasContentType = hasContentType || strcasecmp(name.c_str(), "Content-Type") == 0;
      hasExpect = hasExpect || strcasecmp(name.c_str(), "Expect") == 0;
      // "Name:" would remove the header; "Name;" is libcurl's way to send it empty.
      const std::string line = value.empty() ? name + ";" : name + ": " + value;
      task.headerLines = curl_slist_append(task.headerLines, line.c_str());
    }
    // A body without a content type would be labelled as a form by libcurl.
    if (!hasContentType) task.headerLines = curl_slist_append(task.headerLines, "Content-Type:");
    // No "100 Continue" round trip before larger bodies.
    if (!hasExpect) task.headerLines = curl_slist_append(task.headerLines, "Expect:");
    ok = ok && task.headerLines != nullptr && curl_easy_setopt(easy, CURLOPT_HTTPHEADER, task.headerLines) == CURLE_OK;
    return ok;
  }

  void cancelRequestedTransfers() {
    std::vector<std::shared_ptr<CurlDataTask>> cancelled;
    for (auto it = active_.begin(); it != active_.end();) {
      if (it->second->cancelRequested()) {
        cancelled.push_back(it->second);
        it = active_.erase(it);
      } else {
        ++it;
      }
    }
    for (auto& task : cancelled) {
      release(*task);
      task->complete(errorResult(HttpErrorCode::cancelled));
    }
  }

  void finishDoneTransfers() {
    int left = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      const auto found = active_.find(message->easy_handle);
      if (found == active_.end()) continue;
      const auto task = found->second;
      active_.erase(found);
      auto result = resultOf(*task, message->data.result);
      release(*task);
      task->complete(std::move(result));
    }
  }

  static DataTaskResult resultOf(CurlDataTask& task, CURLcode code) {
    long status = 0;
    curl_easy_getinfo(task.easy, CURLINFO_RESPONSE_CODE, &status);
    char* effectiveURL = nullptr;
    curl_easy_getinfo(task.easy, CURLINFO_EFFECTIVE_URL, &effectiveURL);

    DataTaskResult result;
    if (status > 0) {
      result.response = HttpResponse{effectiveURL ? effectiveURL : task.request_.url, static_cast<int>(status),
                                     std::move(task.receivedHeaders)};
    }
    if (code == CURLE_OK && status > 0) {
      result.data = std::move(task.receivedBody);
    } else if (code == CURLE_OK) {
      result.error = HttpError(HttpErrorCode::badServerResponse);
    } else if (code == CURLE_WRITE_ERROR && task.refusedRedirect) {
      result.error =
          HttpError(HttpErrorCode::unsupportedURL, "redirect from https to http refused: " + *task.refusedRedirect);
    } else if (code == CURLE_FILESIZE_EXCEEDED || (code == CURLE_WRITE_ERROR && task.bodyTooLarge)) {
      result.error = HttpError(HttpErrorCode::dataLengthExceedsMaximum,
                               "larger than " + std::to_string(task.maximumBody) + " bytes");
    } else if (code == CURLE_ABORTED_BY_CALLBACK && task.idleTimedOut) {
      result.error = HttpError(HttpErrorCode::timedOut, "no data moved within the request's time-out");
    } else {
      result.error = HttpError(errorCodeFor(code), task.errorBuffer[0] ? task.errorBuffer : curl_easy_strerror(code));
    }
    return result;
  }

  void release(CurlDataTask& task) {
    if (task.easy) {
      curl_multi_remove_handle(multi_, task.easy);
      curl_easy_cleanup(task.easy);
      task.easy = nullptr;
    }
    curl_slist_free_all(task.headerLines);
    task.headerLines = nullptr;
  }

  const std::string label_;
  const std::optional<std::string> certificateAuthorities_;
  CURLM* multi_ = nullptr;
  std::thread thread_;
  std::unordered_map<CURL*, std::shared_ptr<CurlDataTask>> active_;  // the thread's own

  std::mutex mutex_;
  std::vector<std::shared_ptr<CurlDataTask>> inbox_;
  bool cancelPending_ = false;
  bool stopping_ = false;
  bool joinClaimed_ = false;
  bool threadEnded_ = false;
  std::condition_variable ended_;
};

// Every engine alive, for the exit hook: transfers still running at exit
// end as cancelled and their threads stop before libcurl's libraries go.
struct LiveEngines {
  std::mutex mutex;
  std::vector<std::weak_ptr<Engine>> engines;
};

LiveEngines& liveEngines() {
  static NoDestructor<LiveEngines> instance;
  static const bool hooked = [] {
    process_exit::addHook([] {
      std::vector<std::shared_ptr<Engine>> running;
      {
        std::lock_guard lock(liveEngines().mutex);
        for (const auto& weak : liveEngines().engines) {
          if (auto engine = weak.lock()) running.push_back(std::move(engine));
        }
      }
      for (const auto& engine : running) engine->stopForExit();
    });
    return true;
  }();
  (void)hooked;
  return *instance;
}

void Engine::start() {
  {
    auto& live = liveEngines();
    std::lock_guard lock(live.mutex);
    std::erase_if(live.engines, [](const auto& weak) { return weak.expired(); });
    live.engines.push_back(weak_from_this());
  }
  thread_ = std::thread([self = shared_from_this()] { self->run(); });
}

void CurlDataTask::resume() {
  if (resumed_.exchange(true)) return;
  if (!session_->admit(shared_from_this())) {
    completeElsewhere(HttpErrorCode::cancelled);  // the session has ended
    return;
  }
  counted_ = true;
  auto engine = engine_.lock();
  if (engine && engine->submit(shared_from_this())) return;
  completeElsewhere(HttpErrorCode::cancelled);  // the factory has ended and its threads with it
}

void CurlDataTask::completeElsewhere(HttpErrorCode code) {
  platform()->taskPool->post([self = shared_from_this(), code] { self->complete(errorResult(code)); });
}

void CurlDataTask::cancel() {
  cancelRequested_.store(true);
  if (!resumed_.load()) {
    resume();  // the thread completes it with `cancelled` without starting it
    return;
  }
  if (auto engine = engine_.lock()) engine->wakeForCancel();
}

// Stops its engine when the last of the factory and the sessions that share
// the engine lets go of it.
struct EngineOwner {
  explicit EngineOwner(std::shared_ptr<Engine> made) : engine(std::move(made)) { engine->start(); }
  ~EngineOwner() { engine->stop(); }
  EngineOwner(const EngineOwner&) = delete;
  EngineOwner& operator=(const EngineOwner&) = delete;

  const std::shared_ptr<Engine> engine;
};

class CurlHttpSession final : public HttpSession {
 public:
  CurlHttpSession(std::shared_ptr<EngineOwner> owner, HttpSessionConfiguration configuration)
      : owner_(std::move(owner)), state_(std::make_shared<SessionState>(std::move(configuration))) {}
  ~CurlHttpSession() override { invalidateAndCancel(); }
  CurlHttpSession(const CurlHttpSession&) = delete;
  CurlHttpSession& operator=(const CurlHttpSession&) = delete;

  std::shared_ptr<HttpDataTask> dataTask(HttpRequest request, DataTaskCompletion completion) override {
    return std::make_shared<CurlDataTask>(owner_->engine, state_, std::move(request), std::move(completion));
  }

  // Cancels this session's tasks only: the thread and its connections go on
  // serving the other sessions that share them.
  void invalidateAndCancel() override {
    std::vector<std::shared_ptr<CurlDataTask>> running;
    {
      std::lock_guard lock(state_->mutex);
      state_->ended = true;
      for (const auto& weak : state_->live) {
        if (auto task = weak.lock()) running.push_back(std::move(task));
      }
      state_->live.clear();
    }
    for (const auto& task : running) task->requestCancel();
    if (!running.empty()) owner_->engine->wakeForCancel();
    if (tCompletionsRunning > 0) return;
    std::unique_lock lock(state_->mutex);
    state_->drained.wait(lock, [&] { return state_->unfinished == 0; });
  }

  DataTaskResult send(HttpRequest request) override {
    if (owner_->engine->isCurrentThread()) {
      return errorResult(HttpErrorCode::cancelled, "a blocking send from the session's own thread would wait forever");
    }
    return HttpSession::send(std::move(request));
  }

 private:
  const std::shared_ptr<EngineOwner> owner_;
  const std::shared_ptr<SessionState> state_;
};

}  // namespace

CurlHttpSessionFactory::CurlHttpSessionFactory(std::optional<std::string> certificateAuthorities)
    : certificateAuthorities_(std::move(certificateAuthorities)) {
  static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
  (void)initialised;
}

CurlHttpSessionFactory::~CurlHttpSessionFactory() = default;

std::shared_ptr<HttpSession> CurlHttpSessionFactory::makeSession(HttpSessionConfiguration configuration) {
  std::shared_ptr<EngineOwner> owner;
  {
    std::lock_guard lock(mutex_);
    auto& shared = engines_[{configuration.label, configuration.maximumConnectionsPerHost}];
    if (!shared) {
      shared = std::make_shared<EngineOwner>(std::make_shared<Engine>(
          configuration.label, configuration.maximumConnectionsPerHost, certificateAuthorities_));
    }
    owner = std::static_pointer_cast<EngineOwner>(shared);
  }
  return std::make_shared<CurlHttpSession>(std::move(owner), std::move(configuration));
}

}  // namespace kiv
