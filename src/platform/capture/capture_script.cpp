#include "kiv/testing/capture_script.hpp"
#include "base/text.hpp"

#include <charconv>
#include <cmath>
#include <optional>

#include "kiv/platform/console.hpp"

namespace kiv {
namespace {

constexpr std::string_view kStepNames =
    "wait, connecting, connected, processing, success, failure, canceled, error, deliver, dismiss or nodismiss";

struct Token {
  bool isText = false;  // a double-quoted text rather than a word
  std::string value;
};

struct RawStep {
  std::string_view source;  // for messages
  std::vector<Token> tokens;
};

bool isSeparator(char c) { return c == ';' || c == '\n'; }
constexpr std::string_view kBlanks = " \t\r";
bool isBlank(char c) { return kBlanks.find(c) != std::string_view::npos; }

// Steps and words in messages are in the quoted debug form, so a text
// inside them stays readable.
std::string quoted(std::string_view text) { return debugQuoted(text); }

std::string stepError(std::size_t number, std::string_view source, std::string_view message) {
  return "step " + std::to_string(number) + " (" + quoted(source) + "): " + std::string(message);
}

// Splits the text into non-empty steps of words and texts.
std::expected<std::vector<RawStep>, std::string> tokenize(std::string_view text) {
  std::vector<RawStep> steps;
  RawStep current;
  std::size_t start = 0;
  auto close = [&](std::size_t end) {
    if (!current.tokens.empty()) {
      current.source = trimmed(text.substr(start, end - start), kBlanks);
      steps.push_back(std::move(current));
    }
    current = RawStep{};
  };
  auto failHere = [&](std::string_view message) {
    auto end = start;
    while (end < text.size() && text[end] != '\n') ++end;
    return std::unexpected(stepError(steps.size() + 1, trimmed(text.substr(start, end - start), kBlanks), message));
  };

  std::size_t i = 0;
  while (i < text.size()) {
    const char c = text[i];
    if (isSeparator(c)) {
      close(i);
      start = ++i;
    } else if (isBlank(c)) {
      ++i;
    } else if (c == '"') {
      Token token{true, {}};
      bool closed = false;
      for (++i; i < text.size() && text[i] != '\n'; ++i) {
        if (text[i] == '"') {
          closed = true;
          ++i;
          break;
        }
        if (text[i] == '\\') {
          if (i + 1 >= text.size() || (text[i + 1] != '"' && text[i + 1] != '\\')) {
            return failHere("only \\\" and \\\\ may follow a backslash in a text");
          }
          ++i;
        }
        token.value += text[i];
      }
      if (!closed) return failHere("a text is not closed by \"");
      current.tokens.push_back(std::move(token));
    } else {
      const auto begin = i;
      while (i < text.size() && !isSeparator(text[i]) && !isBlank(text[i]) && text[i] != '"') ++i;
      current.tokens.push_back(Token{false, std::string(text.substr(begin, i - begin))});
    }
  }
  close(text.size());
  return steps;
}

std::optional<double> number(const Token& token) {
  if (token.isText) return std::nullopt;
  double value = 0;
  const char* first = token.value.data();
  const char* last = first + token.value.size();
  auto [end, ec] = std::from_chars(first, last, value);
  if (ec != std::errc() || end != last || !std::isfinite(value)) return std::nullopt;
  return value;
}

bool isFeedbackCode(const Token& token) {
  if (token.isText || token.value.empty()) return false;
  for (char c : token.value) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    if (!ok) return false;
  }
  return true;
}

std::string errorCodeList() {
  std::string list;
  for (auto code : allCases<IProovError::Code>()) {
    if (!list.empty()) list += ", ";
    list += rawValue(code);
  }
  return list;
}

// Reads the arguments of one step, left to right.
class Arguments {
 public:
  // The arguments of the step named by the token at `head`.
  Arguments(const RawStep& step, std::size_t head) : tokens_(step.tokens), next_(head + 1) {}

  const Token* peek() const { return next_ < tokens_.size() ? &tokens_[next_] : nullptr; }
  const Token& take() { return tokens_[next_++]; }
  std::optional<std::string> takeText() {
    if (auto token = peek(); token && token->isText) return take().value;
    return std::nullopt;
  }
  // An error when anything is left.
  std::optional<std::string> leftover() const {
    if (auto token = peek()) return "unexpected " + quoted(token->value);
    return std::nullopt;
  }

 private:
  const std::vector<Token>& tokens_;
  std::size_t next_;
};

// One step without its prefixes: its name is the token at `headIndex`. A
// status comes back as a Report without flags.
std::expected<CaptureScript::Step, std::string> parseStep(const RawStep& step, std::size_t headIndex) {
  const Token& head = step.tokens[headIndex];
  if (head.isText) return std::unexpected("a step starts with its name, not with a text");
  const std::string& name = head.value;
  Arguments args(step, headIndex);
  std::optional<CaptureScript::Step> result;
  auto report = [&](Status status) { result = CaptureScript::Report{std::move(status)}; };

  if (name == "deliver") {
    auto token = args.peek();
    if (!token) return std::unexpected("deliver needs main or vendor");
    if (token->isText || (token->value != "main" && token->value != "vendor")) {
      return std::unexpected(quoted(token->value) + " is not main or vendor");
    }
    result = CaptureScript::Deliver{args.take().value == "main" ? CaptureScript::Thread::main
                                                                : CaptureScript::Thread::vendor};
  } else if (name == "dismiss") {
    result = CaptureScript::Dismiss{};
  } else if (name == "wait") {
    auto token = args.peek();
    if (!token) return std::unexpected("wait needs a number of seconds");
    auto seconds = number(args.take());
    if (!seconds) return std::unexpected(quoted(token->value) + " is not a number of seconds");
    if (*seconds < 0) return std::unexpected(quoted(token->value) + ": a pause cannot be negative");
    if (*seconds > CaptureScript::kLongestWaitSeconds)
      return std::unexpected(quoted(token->value) + ": a pause is at most a day");
    result = CaptureScript::Wait{*seconds};
  } else if (name == "connecting") {
    report(Status::connecting{});
  } else if (name == "connected") {
    report(Status::connected{});
  } else if (name == "processing") {
    auto token = args.peek();
    if (!token) return std::unexpected("processing needs a progress from 0 to 1");
    auto progress = number(args.take());
    if (!progress || *progress < 0 || *progress > 1) {
      return std::unexpected(quoted(token->value) + " is not a progress from 0 to 1");
    }
    report(Status::processing{*progress, args.takeText().value_or("")});
  } else if (name == "success") {
    report(Status::success{});
  } else if (name == "failure") {
    FailureResult failure;
    while (auto token = args.peek()) {
      if (token->isText) return std::unexpected("a description must follow a feedback code");
      if (!isFeedbackCode(*token)) return std::unexpected(quoted(token->value) + " is not a feedback code");
      std::string code = args.take().value;
      auto description = args.takeText().value_or(CaptureScript::defaultDescription(code));
      failure.reasons.push_back(FailureReason{std::move(code), std::move(description)});
    }
    report(Status::failure{std::move(failure)});
  } else if (name == "canceled") {
    Canceler canceler = Canceler::user;
    if (auto token = args.peek()) {
      auto named = token->isText ? std::nullopt : fromRawValue<Canceler>(token->value);
      if (!named) return std::unexpected(quoted(token->value) + " is not a canceler; expected user or integration");
      canceler = *named;
      args.take();
    }
    report(Status::canceled{canceler});
  } else if (name == "error") {
    auto token = args.peek();
    if (!token) return std::unexpected("error needs an IProovError code: " + errorCodeList());
    auto code = token->isText ? std::nullopt : fromRawValue<IProovError::Code>(token->value);
    if (!code) {
      return std::unexpected(quoted(token->value) + " is not an IProovError code; expected one of " + errorCodeList());
    }
    args.take();
    report(Status::error{IProovError(*code, args.takeText())});
  } else {
    return std::unexpected("unknown step " + quoted(name) + "; expected " + std::string(kStepNames));
  }

  if (auto leftover = args.leftover()) return std::unexpected(*leftover);
  return *result;
}

}  // namespace

std::expected<CaptureScript, std::string> CaptureScript::parse(std::string_view text) {
  auto raw = tokenize(text);
  if (!raw) return std::unexpected(raw.error());
  if (raw->empty()) return std::unexpected("the script has no steps");

  CaptureScript script;
  std::optional<std::string_view> finalStatus;
  bool onlySyncSoFar = true;
  for (std::size_t i = 0; i < raw->size(); ++i) {
    const auto& rawStep = (*raw)[i];
    const auto& source = rawStep.source;
    auto fail = [&](std::string_view message) { return std::unexpected(stepError(i + 1, source, message)); };
    auto word = [&](std::size_t at) -> std::string_view {
      if (at >= rawStep.tokens.size() || rawStep.tokens[at].isText) return {};
      return rawStep.tokens[at].value;
    };

    // Prefixes: then, then sync or force.
    std::size_t head = 0;
    const bool late = word(head) == "then";
    if (late) ++head;
    const std::string_view flag = word(head) == "sync" || word(head) == "force" ? word(head) : "";
    if (!flag.empty()) ++head;
    if (head == rawStep.tokens.size()) {
      return fail(std::string(flag.empty() ? "then needs a step" : std::string(flag) + " needs a status"));
    }

    if (word(head) == "nodismiss") {
      if (head + 1 < rawStep.tokens.size()) return fail("unexpected " + quoted(rawStep.tokens[head + 1].value));
      if (!flag.empty()) return fail(std::string(flag) + " needs a status");
      script.dismissAtEnd = false;
      continue;
    }
    if (finalStatus && !late) {
      return fail("nothing may follow the final status " + std::string(*finalStatus) + " unless marked then");
    }
    if (!finalStatus && late) return fail("then marks a step after the final status, and none came before");

    auto step = parseStep(rawStep, head);
    if (!step) return fail(step.error());
    auto* report = std::get_if<Report>(&*step);
    if (!flag.empty() && !report) return fail(std::string(flag) + " needs a status");
    if (flag == "sync") {
      if (!onlySyncSoFar) return fail("sync is only for the first steps, before any other");
      report->sync = true;
    }
    if (flag == "force") report->evenIfCancelled = true;
    if (!report || !report->sync) onlySyncSoFar = false;
    if (report && report->status.isFinal() && !finalStatus) finalStatus = report->status.name();
    script.steps.push_back(std::move(*step));
  }
  return script;
}

std::string CaptureScript::defaultDescription(std::string_view feedbackCode) {
  std::string text(feedbackCode);
  for (char& c : text) {
    if (c == '_') c = ' ';
  }
  if (!text.empty() && text.front() >= 'a' && text.front() <= 'z')
    text.front() = static_cast<char>(text.front() - 'a' + 'A');
  return text;
}

}  // namespace kiv
