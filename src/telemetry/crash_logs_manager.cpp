#include "telemetry/crash_logs_manager.hpp"

#include <array>
#include <mutex>
#include <random>

#include "kiv/platform/console.hpp"
#include "kiv/platform/platform.hpp"
#include "platform/process_state.hpp"
#include "service/key_chain_manager.hpp"

namespace kiv {
namespace {

constexpr std::string_view kRetrieveFailed = "Failed to retrieve crash logs: ";
constexpr std::string_view kSaveFailed = "Failed to save crash log: ";
constexpr std::string_view kUpdateFailed = "Failed to update crash logs: ";
constexpr std::string_view kNotFoundPrefix = "Crash log with ID ";
constexpr std::string_view kNotFoundSuffix = " not found.";

ProcessSlot<std::string>& serviceNameSlot() {
  static ProcessSlot<std::string> slot;
  return slot;
}

void print(std::string_view line) { platform()->console->writeLine(debugQuoted(line)); }

// A random (version 4) UUID in upper-case 8-4-4-4-12 text.
std::string newUuid() {
  static std::mutex mutex;
  static std::random_device device;
  std::array<std::uint8_t, 16> bytes{};
  {
    std::lock_guard lock(mutex);
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
      const auto word = device();
      for (std::size_t k = 0; k < 4; ++k) bytes[i + k] = static_cast<std::uint8_t>(word >> (8 * k));
    }
  }
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += "0123456789ABCDEF"[bytes[i] >> 4];
    text += "0123456789ABCDEF"[bytes[i] & 0x0F];
  }
  return text;
}

std::optional<std::string> stringField(const CrashRecord& record, std::string_view key) {
  if (!record.is_object()) return std::nullopt;
  auto it = record.find(key);
  if (it == record.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

}  // namespace

KivCrashLogsManager::KivCrashLogsManager(std::weak_ptr<KeyChainManagerProtocol> keyChainManager)
    : keyChainManager_(std::move(keyChainManager)) {}

std::string KivCrashLogsManager::serviceName() { return serviceNameSlot().get(); }

void KivCrashLogsManager::setServiceName(std::string name) { serviceNameSlot().set(std::move(name)); }

std::optional<std::vector<CrashRecord>> KivCrashLogsManager::getCrashLogs() {
  auto store = keyChainManager_.lock();
  if (!store) return std::nullopt;
  const auto data = store->readData(serviceName(), kCrashLogsKey);
  if (!data) return std::nullopt;
  Json parsed;
  try {
    parsed = Json::parse(data->begin(), data->end());
  } catch (const Json::exception& error) {
    print(std::string(kRetrieveFailed) + error.what());
    return std::nullopt;
  }
  if (!parsed.is_array()) return std::nullopt;
  std::vector<CrashRecord> records;
  records.reserve(parsed.size());
  for (auto& element : parsed) {
    if (!element.is_object()) return std::nullopt;
    records.push_back(std::move(element));
  }
  return records;
}

void KivCrashLogsManager::saveCrashLog(CrashRecord record) {
  auto store = keyChainManager_.lock();
  if (!store) return;
  std::vector<CrashRecord> records = getCrashLogs().value_or(std::vector<CrashRecord>{});
  if (auto trace = stringField(record, crash_keys::stackTrace)) {
    for (const auto& stored : records) {
      if (stringField(stored, crash_keys::stackTrace) == trace) return;
    }
  }
  std::string bytes;
  try {
    record[crash_keys::id] = newUuid();
    records.push_back(std::move(record));
    bytes = json::dumpCompact(Json(records));
  } catch (const Json::exception& error) {
    print(std::string(kSaveFailed) + error.what());
    return;
  }
  try {
    store->save(serviceName(), kCrashLogsKey, asBytes(bytes), /*update=*/true);
  } catch (const KeychainError&) {
    // Not reported: the record is simply not kept.
  }
}

void KivCrashLogsManager::clearCrashLogs() {
  if (auto store = keyChainManager_.lock()) store->deleteItem(kCrashLogsKey);
}

std::optional<std::string> KivCrashLogsManager::findCrashLogId(std::string_view stackTrace) {
  const auto records = getCrashLogs();
  if (!records) return std::nullopt;
  for (const auto& record : *records) {
    if (stringField(record, crash_keys::stackTrace) != stackTrace) continue;
    if (auto id = stringField(record, crash_keys::id)) return id;
  }
  return std::nullopt;
}

void KivCrashLogsManager::deleteCrashLog(std::string_view id) {
  auto store = keyChainManager_.lock();
  if (!store) return;
  std::vector<CrashRecord> records = getCrashLogs().value_or(std::vector<CrashRecord>{});
  auto found = std::find_if(records.begin(), records.end(),
                            [&](const CrashRecord& record) { return stringField(record, crash_keys::id) == id; });
  if (found == records.end()) {
    print(std::string(kNotFoundPrefix) + std::string(id) + std::string(kNotFoundSuffix));
    return;
  }
  records.erase(found);
  std::string bytes;
  try {
    bytes = json::dumpCompact(Json(records));
  } catch (const Json::exception& error) {
    print(std::string(kUpdateFailed) + error.what());
    return;
  }
  try {
    store->save(serviceName(), kCrashLogsKey, asBytes(bytes), /*update=*/true);
  } catch (const KeychainError&) {
  }
}

}  // namespace kiv
