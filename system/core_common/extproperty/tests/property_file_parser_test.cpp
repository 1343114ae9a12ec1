#include "utils/property_file_parser.h"

#include <android-base/logging.h>

#include "extproperty/property_file_observer.h"
#include "tests/device_test.h"
#include "utils/expand_props.h"

using namespace android::init;

class PropertyFileParserTest : public DeviceTest {
 protected:
  // Returns what a file adds to an empty map.
  static std::string Load(const char* path, const char* filter = nullptr) {
    PropertyMap map;
    EXPECT_TRUE(load_properties_from_file_without_se(path, filter, &map));
    return Text(map);
  }
};

TEST_F(PropertyFileParserTest, lines_are_trimmed_cut_and_skipped) {
  Write("/a.prop",
        "  # comment=1\n\v\f\t y\t=\ta b \r\nx=a=b\nno property\nimport/a.prop\n\n=nameless\n"
        "empty=\n\b=backspace is no white space\nz#=#no comment\nlast=no line feed");
  EXPECT_EQ(Load("/a.prop"),
            "=nameless \b=backspace is no white space empty= last=no line feed x=a=b y=a b "
            "z#=#no comment");
  Write("/nul.prop", std::string("a=1 \0 2\n\0b=2\nc\0=3\nd=4", 21));
  android::base::SetMinimumLogSeverity(android::base::VERBOSE);
  EXPECT_EQ(Load("/nul.prop"), "a=1 d=4");
  EXPECT_THAT(Logged(),
              testing::MatchesRegex(R"(V \(Loading properties from /nul.prop took [0-9]+ms\.\))"));
}

TEST_F(PropertyFileParserTest, filter_keeps_a_name_or_a_prefix_and_follows_no_import) {
  Write("/a.prop", "ro.a=1\nro.ab=2\nb.ro.=3\nimport /a.prop\nimport x=y\n");
  EXPECT_EQ(Load("/a.prop", "ro.*"), "ro.a=1 ro.ab=2");
  EXPECT_EQ(Load("/a.prop", "ro.a"), "ro.a=1");
  EXPECT_EQ(Logged(), "");
}

TEST_F(PropertyFileParserTest, imports_expand_references_and_take_a_filter) {
  Set("ro.sku=eu");
  Write("/eu.prop", "ro.eu=1\nx.eu=1\nimport /us.prop\n");
  Write("/us.prop", "ro.us=1\n");
  Write("/with\ttab", "tab=1\n");
  Write("/a.prop", "import /${ro.sku}.prop   ro.e*  \nimport /with\ttab\n");
  EXPECT_EQ(Load("/a.prop"), "ro.eu=1 tab=1");
  // What cannot be imported is skipped.
  Write("/a.prop", "import /missing\nimport /\nimport /$x\nimport \t /${ro.no:-us}.prop\r\n");
  EXPECT_EQ(Load("/a.prop"), "ro.us=1");
  EXPECT_THAT(Logged(), HasSubstr("E expand filename load failed : / | E Could not expand filename "
                                  "': using deprecated syntax"));
}

TEST_F(PropertyFileParserTest, import_of_a_file_being_read_is_refused_by_its_path) {
  Write("/a.prop", "a=1\nimport /b.prop\nimport /b.prop\nend=a\n");
  Write("/b.prop", "b=1\nimport /a.prop\nimport /alias/b.prop\nend=b\n");
  fs::create_symlink("/", "/alias");
  EXPECT_EQ(Load("/a.prop"), "a=1 b=1 end=a");
  // Both imports of b are read. Each refused path is logged once.
  EXPECT_EQ(Logged(),
            "E import refused, the file is being read already: /a.prop | E import refused, the "
            "file is being read already: /alias/b.prop | W Overriding previous 'ro.' property "
            "'end':'b' with new value 'a'");
}

TEST_F(PropertyFileParserTest, import_with_a_filter_closes_no_circle) {
  Write("/A.prop", "ro.k=fromA\nimport /B.prop\n");
  Write("/B.prop", "ro.k=fromB\nimport /A.prop ro.*\n");
  EXPECT_EQ(Load("/A.prop"), "ro.k=fromA");
  EXPECT_EQ(Logged(),
            "W Overriding previous 'ro.' property 'ro.k':'fromA' with new value 'fromB' | W "
            "Overriding previous 'ro.' property 'ro.k':'fromB' with new value 'fromA'");
  Write("/self.prop", "k=1\nimport /self.prop k\nk=2\n");
  EXPECT_EQ(Load("/self.prop"), "k=2");
  EXPECT_EQ(Logged(), "W Overriding previous 'ro.' property 'k':'1' with new value '2'");
}

TEST_F(PropertyFileParserTest, import_depth_and_number_of_files_are_bounded) {
  for (int i = 1; i <= 129; ++i) Write("/" + std::to_string(i), "import /" + std::to_string(i + 1));
  Load("/1");
  EXPECT_EQ(Logged(), "E import refused, nested too deep: /129");
  // The file itself counts, so that the last import is the first one refused.
  Write("/one", "one=1\n");
  Write("/last", "last=1\n");
  std::string imports;
  for (int i = 1; i < 4096; ++i) imports += "import /one\n";
  Write("/a.prop", imports + "import /last\nimport /last\nafter=1\n");
  EXPECT_EQ(Load("/a.prop"), "after=1 one=1");
  EXPECT_EQ(Logged(), "E import refused, too many files: /last");
}

// Writes down what it is told, as "file{ number:outcome name=value }error".
class Listener : public PropertyFileObserver {
 public:
  std::string told;

  void EnterFile(std::string_view path, std::string_view filter, const PropertyMap*) override {
    told.append(path).append(filter).append("{ ");
  }
  void LeaveFile(std::string_view error) override { told.append("}").append(error).append(" "); }
  void ReadLine(const PropertyLine& line) override {
    told +=
        std::to_string(line.number) + ":" + std::to_string(static_cast<int>(line.outcome)) + " ";
    told.append(line.name).append("=").append(line.value).append(" ");
    EXPECT_TRUE(line.text.find(line.value) != std::string_view::npos) << line.text;
  }
};

TEST_F(PropertyFileParserTest, an_observer_is_told_of_every_file_and_line) {
  Write("/a.prop",
        "# c\nb\nx=1\nx=2\nx=2\nimport /b.prop y*\nimport /none\nimport /a.prop\nimport /${z}\n");
  Write("/b.prop", "y=1\nz=2\n");
  Listener listener;
  KSSI_OBSERVE_PropertyFiles(&listener);
  PropertyMap map;
  EXPECT_TRUE(load_properties_from_file_without_se("/a.prop", nullptr, &map));
  EXPECT_FALSE(load_properties_from_file_without_se("/none", nullptr, &map));
  KSSI_OBSERVE_PropertyFiles(nullptr);
  Load("/b.prop");
  // The outcomes in their order: blank, no property, filtered, set, replaced, same again, and of
  // imports followed, missing, refused, not expandable.
  EXPECT_EQ(listener.told,
            "/a.prop{ 1:0 = 2:1 = 3:3 x=1 4:4 x=2 5:5 x=2 6:6 /b.prop=y* /b.propy*{ 1:3 y=1 "
            "2:2 z=2 } 7:7 /none= 8:8 /a.prop= 9:9 /${z}= } /none{ }open() failed: "
            "No such file or directory ");
}

TEST(PropertyLegality, names_and_values) {
  EXPECT_TRUE(IsLegalPropertyName("aA9-b:c@d_e.f"));
  for (const char* name : {"", ".", "a..b", ".a", "a.", "a/b", "a\xc3\xa4"}) {
    EXPECT_FALSE(IsLegalPropertyName(name)) << name;
  }
  EXPECT_TRUE(IsLegalPropertyValue("ro.a", std::string(92, 'v') + "\xc3\xbc").ok());
  EXPECT_FALSE(IsLegalPropertyValue("roa", std::string(92, 'v')).ok());
  EXPECT_FALSE(IsLegalPropertyValue("ro.a", "\xff").ok());
}

TEST_F(DeviceTest, expand_props_replaces_references) {
  const std::string long_value(200, 'l');  // property_get would give less
  Set("a=A ro.x=X empty= ro.long=" + long_value);
  const std::pair<const char*, std::string> cases[] = {
      {"a$$b${a}${ro.x}$", "a$bAX"},
      {"${ro.x:-def}", "X"},
      {"${n:-b:-c}", "b:-c"},
      {"${empty:-d}!", "d!"},
      {"${n:-${a}", "${a"},
      {"${ro.long}", long_value},
      {"x${a", "unexpected end of string in 'x${a', looking for }"},
      {"${:-x}", "invalid zero-length property name in '${:-x}'"},
      {"${n:-}", "property 'n' doesn't exist while expanding '${n:-}'"}};
  for (const auto& [text, expected] : cases) {
    const auto result = ExpandProps(text);
    EXPECT_EQ(result.ok() ? *result : result.error().message(), expected) << text;
  }
}
