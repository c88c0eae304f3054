// Removing recordings: those that are too old or take too much room, and those that somebody removed.
#pragma once

#include <cstdint>
#include <string>

#include "records/records.h"

namespace oculora {

constexpr char kKeepDaysSetting[] = "record_keep_days";
constexpr char kKeepDaysDefault[] = "30";
constexpr char kKeepGbSetting[] = "record_keep_gb";  // of a thousand million bytes
constexpr char kKeepGbDefault[] = "0";

// A whole number from 0 up in a setting; the default when it is none.
std::int64_t NumberSetting(Database& records, const char* name, const char* defaultValue);

// Removes files and rows of all events that are being deleted. False with a sentence about the last one that stayed.
bool FinishDeleting(Database& records, std::string& reason);

// Deletes what the settings say, oldest first, without what is kept. A few rows at a time; false as above.
bool ApplyRetention(Database& records, std::int64_t nowSeconds, std::string& reason);

// Entry of `oculora-recorder --housekeep`; the exit code. Ends with SIGTERM.
int RunHousekeeping();

}  // namespace oculora
