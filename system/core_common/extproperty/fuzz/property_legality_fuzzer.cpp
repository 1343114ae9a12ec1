#include <regex>

#include "fuzz/fuzz_support.h"
#include "utils/property_file_parser.h"

// Input: a name and a value.
void fuzz::Test(const std::vector<std::string>& pieces) {
  const std::string &name = pieces[0], &value = pieces[1];
  static const std::regex legal_name("[A-Za-z0-9:@_-]+(\\.[A-Za-z0-9:@_-]+)*");
  Expect(android::init::IsLegalPropertyName(name) == std::regex_match(name, legal_name),
         "the name is legal where the model's is");

  // The C library takes what lies beyond the last code point as well.
  static const std::regex utf8(
      "([\x01-\x7f]|[\xc2-\xdf][\x80-\xbf]|(\xe0[\xa0-\xbf]|\xed[\x80-\x9f])[\x80-\xbf]|"
      "[\xe1-\xec\xee\xef][\x80-\xbf]{2}|\xf0[\x90-\xbf][\x80-\xbf]{2}|[\xf1-\xf7][\x80-\xbf]{3})"
      "*");
  std::string expected;
  if (!std::regex_match(value.c_str(), utf8)) expected = "Value is not a UTF8 encoded string";
  if (value.size() > 91 && name.substr(0, 3) != "ro.") expected = "Property value too long";
  const auto legal = android::init::IsLegalPropertyValue(name, value);
  Expect((legal.ok() ? "" : legal.error().message()) == expected, "the value is the model's");
}
