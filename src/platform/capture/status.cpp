#include "kiv/platform/capture/status.hpp"

#include "base/overloaded.hpp"

namespace kiv {

std::string FailureResult::description() const {
  std::string text = "FailureResult(reasons: [";
  for (std::size_t i = 0; i < reasons.size(); ++i) {
    if (i > 0) text += ", ";
    text += reasons[i].feedbackCode;
  }
  return text + "])";
}

bool Status::isFinal() const { return is<success>() || is<failure>() || is<canceled>() || is<error>(); }

std::string_view Status::name() const {
  return std::visit(Overloaded{
                        [](const connecting&) { return std::string_view("connecting"); },
                        [](const connected&) { return std::string_view("connected"); },
                        [](const processing&) { return std::string_view("processing"); },
                        [](const success&) { return std::string_view("success"); },
                        [](const failure&) { return std::string_view("failure"); },
                        [](const canceled&) { return std::string_view("canceled"); },
                        [](const error&) { return std::string_view("error"); },
                    },
                    value_);
}

}  // namespace kiv
