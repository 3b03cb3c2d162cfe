// The camera's settings as one readable text file: the configuration record's own names, one "NAME = VALUE" a line,
// "#" begins a comment.  A week's schedule may be told as "schedule.monday = 08:00-12:00 motion, 13:00-18:00".
//
// Knows which settings the desk camera offers, their places in the record and their bounds.  No threads, no state
// but the last text of each setting (SettingsFile).
#pragma once

#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "SysInfo.h"

namespace desk {

struct Setting {
    std::string name;
    size_t offset;  // in SysInfo
    size_t size;    // 1, 2 or 4 bytes, unsigned
    int64_t lowest;
    int64_t highest;
    int64_t standard;
    std::string comment;  // empty: not written into a new settings file
};

const std::vector<Setting>& AllSettings();
const Setting& SettingByName(const std::string& name);  // throws std::runtime_error

int64_t ReadSetting(const SysInfo& record, const Setting& setting);
void WriteSetting(SysInfo& record, const Setting& setting, int64_t value);  // throws std::runtime_error out of bounds

// Sets the one that `name` tells, a "schedule.DAY" included.  Throws std::runtime_error; the record is unchanged then.
void ApplySetting(SysInfo& record, const std::string& name, const std::string& value);
// The same for a line "NAME = VALUE".
void ApplySettingLine(SysInfo& record, const std::string& line);

void ApplyStandardSettings(SysInfo& record);
std::string StandardSettingsText();

struct SettingProblem {
    int line;
    std::string text;
};

// A settings file that is read again whenever it changes, replaced or rewritten.  Only lines whose value is another
// than at the last reading are applied, so that a change made elsewhere lasts until its own line changes.
class SettingsFile {
  public:
    explicit SettingsFile(std::string path) : path_(std::move(path)) {}

    const std::string& Path() const { return path_; }

    // Whether the file is another than at the last Read.
    bool Changed() const;

    // Applies what is new.  A line that cannot be applied is reported, with its number, and has no effect.
    std::vector<SettingProblem> Read(SysInfo& record);

  private:
    std::string path_;
    struct stat status_ {};
    std::map<std::string, std::string> applied_;
};

}  // namespace desk
