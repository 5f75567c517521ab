#include "telemetry/crash_logs_manager.hpp"
#include "platform/console/debug_line.hpp"

#include <array>

#include "base/no_destructor.hpp"
#include "base/process_state.hpp"
#include "kiv/platform/console.hpp"
#include "kiv/platform/platform.hpp"
#include "service/key_chain_manager.hpp"
#include "telemetry/context_collector.hpp"

namespace kiv {
namespace {

constexpr std::string_view kRetrieveFailed = "Failed to retrieve crash logs: ";
constexpr std::string_view kSaveFailed = "Failed to save crash log: ";
constexpr std::string_view kUpdateFailed = "Failed to update crash logs: ";
constexpr std::string_view kNotFoundPrefix = "Crash log with ID ";
constexpr std::string_view kNotFoundSuffix = " not found.";

ProcessSlot<std::string>& serviceNameSlot() {
  static NoDestructor<ProcessSlot<std::string>> slot;
  return *slot;
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
    printDebugLine(std::string(kRetrieveFailed) + error.what());
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
    record[crash_keys::id] = randomUuidText();
    records.push_back(std::move(record));
    bytes = json::dumpCompact(Json(records));
  } catch (const Json::exception& error) {
    printDebugLine(std::string(kSaveFailed) + error.what());
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
    printDebugLine(std::string(kNotFoundPrefix) + std::string(id) + std::string(kNotFoundSuffix));
    return;
  }
  records.erase(found);
  std::string bytes;
  try {
    bytes = json::dumpCompact(Json(records));
  } catch (const Json::exception& error) {
    printDebugLine(std::string(kUpdateFailed) + error.what());
    return;
  }
  try {
    store->save(serviceName(), kCrashLogsKey, asBytes(bytes), /*update=*/true);
  } catch (const KeychainError&) {
  }
}

}  // namespace kiv
