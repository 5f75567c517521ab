// The crash log store: crash records kept in the secure store until they are
// posted, as one JSON array in the item ("serviceName", "local_storage_log").
//
// Every operation reads the item afresh and runs on the calling thread; the
// store takes no lock, so read-change-write sequences of two callers may
// overlap (the crash handler's queue and its crash path are the only ones).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "telemetry/crash_record.hpp"

namespace kiv {

class KeyChainManagerProtocol;

// The account of the item holding every stored crash record.
inline constexpr std::string_view kCrashLogsKey = "local_storage_log";

class KivCrashLogsManagerProtocol {
 public:
  virtual ~KivCrashLogsManagerProtocol() = default;

  // Appends `record` with a new upper-case UUID as "id", unless a stored
  // record has the same string "stackTrace".
  virtual void saveCrashLog(CrashRecord record) = 0;
  // The stored records in saving order; absent when there is no item or it
  // does not hold a list of objects.
  virtual std::optional<std::vector<CrashRecord>> getCrashLogs() = 0;
  // Deletes the item by account, whatever its service.
  virtual void clearCrashLogs() = 0;
  // The "id" of the first record with this "stackTrace" that has a string id.
  virtual std::optional<std::string> findCrashLogId(std::string_view stackTrace) = 0;
  // Removes the first record with this "id"; prints a line when there is none.
  virtual void deleteCrashLog(std::string_view id) = 0;
};

class KivCrashLogsManager final : public KivCrashLogsManagerProtocol {
 public:
  // The secure store is held weakly: once it is gone, reads give nothing and
  // writes do nothing.
  explicit KivCrashLogsManager(std::weak_ptr<KeyChainManagerProtocol> keyChainManager);

  // The service of the item, for the whole process: "" until the crash
  // handler's install sets it. Safe from any thread.
  static std::string serviceName();
  static void setServiceName(std::string name);

  void saveCrashLog(CrashRecord record) override;
  std::optional<std::vector<CrashRecord>> getCrashLogs() override;
  void clearCrashLogs() override;
  std::optional<std::string> findCrashLogId(std::string_view stackTrace) override;
  void deleteCrashLog(std::string_view id) override;

 private:
  std::weak_ptr<KeyChainManagerProtocol> keyChainManager_;
};

}  // namespace kiv
