#include "c_api/c_delegate.hpp"

#include <string>

namespace kiv::c_api {
namespace {

thread_local int callDepth = 0;

const char* orNull(const std::optional<std::string>& text) { return text ? text->c_str() : nullptr; }

}  // namespace

bool CDelegate::insideCall() { return callDepth > 0; }

template <typename Call>
void CDelegate::forward(Call&& call) {
  if (!attached_) return;
  ++callDepth;
  call(functions_);
  --callDepth;
}

void CDelegate::didFinishWithSuccess(const KivFaceLivenessLiteResult& livenessResult) {
  // Copied first: the host sees text that lives for the whole call.
  const std::string signedResponse = livenessResult.signedResponse().value_or("");
  forward([&](const kiv_delegate& f) {
    if (f.did_finish_with_success) f.did_finish_with_success(f.user_data, signedResponse.c_str());
  });
}

void CDelegate::didFinishWithFailure(KivFailureType type, const std::optional<std::string>& description,
                                     const std::optional<std::string>& signedResponse) {
  const std::string raw(rawValue(type));
  const auto text = description;
  const auto response = signedResponse;
  forward([&](const kiv_delegate& f) {
    if (f.did_finish_with_failure) f.did_finish_with_failure(f.user_data, raw.c_str(), orNull(text), orNull(response));
  });
}

void CDelegate::didFinishWithError(KivErrorType type, const std::string& description) {
  const std::string raw(rawValue(type));
  const std::string text = description;
  forward([&](const kiv_delegate& f) {
    if (f.did_finish_with_error) f.did_finish_with_error(f.user_data, raw.c_str(), text.c_str());
  });
}

void CDelegate::cancelled() {
  forward([](const kiv_delegate& f) {
    if (f.cancelled) f.cancelled(f.user_data);
  });
}

void CDelegate::loading() {
  forward([](const kiv_delegate& f) {
    if (f.loading) f.loading(f.user_data);
  });
}

void CDelegate::loaded() {
  forward([](const kiv_delegate& f) {
    if (f.loaded) f.loaded(f.user_data);
  });
}

}  // namespace kiv::c_api
