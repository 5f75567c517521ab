#include "platform/defaults/sqlite_user_defaults.hpp"

namespace kiv {

SqliteUserDefaults::SqliteUserDefaults(std::shared_ptr<StoreDatabase> database) : database_(std::move(database)) {}

std::optional<std::string> SqliteUserDefaults::string(std::string_view key) {
  std::optional<std::string> value;
  database_->run([&](sqlite3* db, const ItemKey&) {
    Statement select(db, "SELECT value FROM defaults WHERE key = ?1");
    if (!select.ok() || !select.bindText(1, key) || select.step() != SQLITE_ROW) return;
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(select.get(), 0));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(select.get(), 0));
    value.emplace(text == nullptr ? std::string() : std::string(text, size));
  });
  return value;
}

void SqliteUserDefaults::setString(std::string_view key, std::string_view value) {
  database_->run([&](sqlite3* db, const ItemKey&) {
    Statement upsert(db,
                     "INSERT INTO defaults (key, value) VALUES (?1, ?2) "
                     "ON CONFLICT (key) DO UPDATE SET value = excluded.value");
    if (upsert.ok() && upsert.bindText(1, key) && upsert.bindText(2, value)) upsert.step();
  });
}

void SqliteUserDefaults::remove(std::string_view key) {
  database_->run([&](sqlite3* db, const ItemKey&) {
    Statement erase(db, "DELETE FROM defaults WHERE key = ?1");
    if (erase.ok() && erase.bindText(1, key)) erase.step();
  });
}

std::shared_ptr<UserDefaults> makeLinuxUserDefaults(std::optional<std::filesystem::path> directory) {
  return std::make_shared<SqliteUserDefaults>(std::make_shared<StoreDatabase>(std::move(directory)));
}

}  // namespace kiv
