// Recognition options read from the whole command line.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace tallowbrook::VisionOCR {

struct Settings {
  bool useLanguageCorrection = false;
  bool automaticallyDetectLanguage = false;
  std::vector<std::string> languages = {"en-US"};  // locale identifiers, in priority order
  float minimumTextHeightFraction = 0;

  // Reads the options from the full argument vector (program name and subcommand included;
  // other words are ignored). An option's value is the word after its first occurrence; a
  // trailing option counts as absent. Boolean options are true for "on", "true", "yes", "1"
  // in any case; "--languages" splits on "," dropping empty pieces; an unparsable
  // "--min-text-height" gives 0. Pure.
  static Settings fromArguments(const std::vector<std::string>& arguments);

  // The settings as four strings for the report: "true"/"false", the languages joined with ","
  // and the height fraction in its shortest decimal form ("0.0", "0.02"). Pure.
  std::map<std::string, std::string> echo() const;
};

// The shortest text that reads back as `value`, in the platform's float notation: "0.0",
// "0.02", "16777216.0", "1e-05", "1.6777218e+07", "nan", "inf". Pure.
std::string shortestFloatText(float value);

}  // namespace tallowbrook::VisionOCR
