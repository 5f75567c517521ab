// Why a run could not complete, and why a completed capture was judged a
// failure. The raw values are wire values: hosts compare them and they appear
// in encoded records, so they never change.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <array>
#include <string_view>
#include <utility>

#include "kiv/raw_value.hpp"

namespace kiv {

// Raw values equal the case names (camelCase).
enum class KivErrorType {
  unsupportedDevice,
  cameraPermission,
  networkException,
  serverException,
  tokenException,
  captureAlreadyActiveException,
  unexpectedErrorException,
  userTimeoutException,
  imageNotFoundException,
  tooManyRequestsException,
  unknownException,
  libraryException,
  permissionException,
  invalidResponseException,
  cameraException,
  certificateException,
  invalidOptionsException,
  securityException,
  faceAuthentication,
};

template <>
struct RawValueTraits<KivErrorType> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<KivErrorType, std::string_view>, 19> table{{
      {KivErrorType::unsupportedDevice, "unsupportedDevice"},
      {KivErrorType::cameraPermission, "cameraPermission"},
      {KivErrorType::networkException, "networkException"},
      {KivErrorType::serverException, "serverException"},
      {KivErrorType::tokenException, "tokenException"},
      {KivErrorType::captureAlreadyActiveException, "captureAlreadyActiveException"},
      {KivErrorType::unexpectedErrorException, "unexpectedErrorException"},
      {KivErrorType::userTimeoutException, "userTimeoutException"},
      {KivErrorType::imageNotFoundException, "imageNotFoundException"},
      {KivErrorType::tooManyRequestsException, "tooManyRequestsException"},
      {KivErrorType::unknownException, "unknownException"},
      {KivErrorType::libraryException, "libraryException"},
      {KivErrorType::permissionException, "permissionException"},
      {KivErrorType::invalidResponseException, "invalidResponseException"},
      {KivErrorType::cameraException, "cameraException"},
      {KivErrorType::certificateException, "certificateException"},
      {KivErrorType::invalidOptionsException, "invalidOptionsException"},
      {KivErrorType::securityException, "securityException"},
      {KivErrorType::faceAuthentication, "faceAuthentication"},
  }};
};

// Raw values are snake_case.
enum class KivFailureType {
  unknown,
  tooMuchMovement,
  tooBright,
  tooDark,
  misalignedFace,
  eyesClosed,
  faceTooFar,
  faceTooClose,
  sunglasses,
  eyewear,
  obscuredFace,
  multipleFaces,
  faceNotFound,
  framesBlurry,
  lightingIssues,
  motionIssue,
  backgroundIssue,
  deviceIssue,
  deviceRestart,
  systemError,
  rejected,
  timeout,
  userNotFound,
  processingFault,
};

template <>
struct RawValueTraits<KivFailureType> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<KivFailureType, std::string_view>, 24> table{{
      {KivFailureType::unknown, "unknown"},
      {KivFailureType::tooMuchMovement, "too_much_movement"},
      {KivFailureType::tooBright, "too_bright"},
      {KivFailureType::tooDark, "too_dark"},
      {KivFailureType::misalignedFace, "misaligned_face"},
      {KivFailureType::eyesClosed, "eyes_closed"},
      {KivFailureType::faceTooFar, "face_too_far"},
      {KivFailureType::faceTooClose, "face_too_close"},
      {KivFailureType::sunglasses, "sunglasses"},
      {KivFailureType::eyewear, "eyewear"},
      {KivFailureType::obscuredFace, "obscured_face"},
      {KivFailureType::multipleFaces, "multiple_faces"},
      {KivFailureType::faceNotFound, "face_not_found"},
      {KivFailureType::framesBlurry, "frames_blurry"},
      {KivFailureType::lightingIssues, "lighting_issues"},
      {KivFailureType::motionIssue, "motion_issue"},
      {KivFailureType::backgroundIssue, "background_issue"},
      {KivFailureType::deviceIssue, "device_issue"},
      {KivFailureType::deviceRestart, "device_restart"},
      {KivFailureType::systemError, "system_error"},
      {KivFailureType::rejected, "rejected"},
      {KivFailureType::timeout, "timeout"},
      {KivFailureType::userNotFound, "user_not_found"},
      {KivFailureType::processingFault, "processing_fault"},
  }};
};

}  // namespace kiv

#pragma GCC visibility pop
