// oculora retention: how long recordings stay, and how much of the disk they leave free.
#include <cinttypes>
#include <cstdio>
#include <memory>

#include "admin/command.h"
#include "recorder/recording/disk_room.h"
#include "recorder/recording/housekeeping.h"

namespace oculora {
namespace {

constexpr int kNotGiven = -1;

struct RetentionOptions {
  int days = kNotGiven;
  int gigabytes = kNotGiven;
  int reserveMb = kNotGiven;
};

std::string Limit(std::int64_t value, const char* unit) {
  return value == 0 ? "no limit" : std::to_string(value) + " " + unit;
}

int SetRetention(const RetentionOptions& options) {
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  const std::pair<const char*, int> settings[] = {
      {kKeepDaysSetting, options.days}, {kKeepGbSetting, options.gigabytes}, {kReserveSetting, options.reserveMb}};
  for (const auto& [name, value] : settings) {
    if (value != kNotGiven && !records->SetSetting(name, std::to_string(value))) return Fail(records->LastError());
  }
  const std::string days = Limit(NumberSetting(*records, kKeepDaysSetting, kKeepDaysDefault), "days");
  const std::string size = Limit(NumberSetting(*records, kKeepGbSetting, kKeepGbDefault), "GB");
  const std::int64_t reserveMb = NumberSetting(*records, kReserveSetting, kReserveDefault);
  if (records->IsUnreadable()) return Fail(records->LastError());
  printf("by age      %s\nby size     %s\nkept free   %" PRId64 " MB\n", days.c_str(), size.c_str(), reserveMb);
  return 0;
}

}  // namespace

void AddRetentionCommands(CLI::App& app, Action& action) {
  const auto options = std::make_shared<RetentionOptions>();
  CLI::App* command = app.add_subcommand("retention", "Show or set how long recordings stay");
  command->add_option("--days", options->days, "Delete those that are older; 0: no limit")->check(CLI::Range(0, 36500));
  command->add_option("--gb", options->gigabytes, "Delete the oldest when all take more; 0: no limit")
      ->check(CLI::Range(0, 1000000));
  command->add_option("--reserve-mb", options->reserveMb, "Record nothing when less of the disk is free")
      ->check(CLI::Range(0, 100000000));
  command->callback([=, &action] { action = [=] { return SetRetention(*options); }; });
}

}  // namespace oculora
