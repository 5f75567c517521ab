// The Linux user defaults: a plain table of the secure store's database.
#pragma once

#include <memory>

#include "kiv/platform/user_defaults.hpp"
#include "platform/secure_store/store_database.hpp"

namespace kiv {

class SqliteUserDefaults final : public UserDefaults {
 public:
  explicit SqliteUserDefaults(std::shared_ptr<StoreDatabase> database);

  std::optional<std::string> string(std::string_view key) override;
  void setString(std::string_view key, std::string_view value) override;
  void remove(std::string_view key) override;

 private:
  std::shared_ptr<StoreDatabase> database_;
};

}  // namespace kiv
