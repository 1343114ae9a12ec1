#include "utils/property_file_parser.h"

#include <sys/stat.h>
#include <unistd.h>

#include "tests/device_test.h"
#include "utils/expand_props.h"

using namespace android::init;

class PropertyFileParserTest : public DeviceTest {
 protected:
  // Returns what a file of this content adds to an empty map.
  static PropertyMap Parse(const std::string& content, const char* filter = nullptr) {
    Write("/parsed.prop", content);
    PropertyMap map;
    EXPECT_TRUE(load_properties_from_file_without_se("/parsed.prop", filter, &map));
    return map;
  }
};

TEST_F(PropertyFileParserTest, lines_are_stripped_cut_and_skipped) {
  EXPECT_EQ(Parse("  # x=1\n"
                  "x = 1 \n"
                  "\v\f\t y\t=\ta b \r\n"
                  "x2=a=b\n"
                  "no property\n"
                  "\n \t\r\n"
                  "=nameless\n"
                  "empty=\n"
                  "\b=backspace is no white space\n"
                  "z#=#not a comment\n"
                  "last=without line feed"),
            (PropertyMap{{"x", "1"},
                         {"y", "a b"},
                         {"x2", "a=b"},
                         {"", "nameless"},
                         {"empty", ""},
                         {"\b", "backspace is no white space"},
                         {"z#", "#not a comment"},
                         {"last", "without line feed"}}));
  EXPECT_TRUE(Parse("").empty());
}

TEST_F(PropertyFileParserTest, nul_ends_the_text_of_its_line_only) {
  const char content[] = "a=1 \0 2\n\0b=2\nc\0=3\nd=4";
  EXPECT_EQ(Parse(std::string(content, sizeof(content) - 1)),
            (PropertyMap{{"a", "1"}, {"d", "4"}}));
}

TEST_F(PropertyFileParserTest, filters_keep_exact_names_or_prefixes_and_stop_imports) {
  Write("/imported.prop", "ro.imported=1\n");
  const std::string content =
      "ro.a=1\nro.ab=2\npersist.a=3\nimport /imported.prop\nimport x=y\nro.=0\n";
  EXPECT_EQ(Parse(content, "ro.*"), (PropertyMap{{"ro.a", "1"}, {"ro.ab", "2"}, {"ro.", "0"}}));
  EXPECT_EQ(Parse(content, "ro.a"), (PropertyMap{{"ro.a", "1"}}));
  EXPECT_EQ(Parse(content, "*").size(), 5u);
  EXPECT_EQ(Parse(content, "import x"), (PropertyMap{{"import x", "y"}}));
  EXPECT_EQ(Parse(content, "").count("ro.imported"), 1u);
}

TEST_F(PropertyFileParserTest, later_values_win_with_a_warning) {
  Write("/imported.prop", "a=imported\n");
  Write("/parsed.prop", "a=1\na=1\nimport /imported.prop\na=last\nb=same\n");
  PropertyMap map = {{"b", "same"}, {"kept", "k"}, {"a", "0"}};
  EXPECT_TRUE(load_properties_from_file_without_se("/parsed.prop", nullptr, &map));
  EXPECT_EQ(map, (PropertyMap{{"a", "last"}, {"b", "same"}, {"kept", "k"}}));
  EXPECT_EQ(TakeLog(), (std::vector<std::string>{
                           "W Overriding previous 'ro.' property 'a':'0' with new value '1'",
                           "W Overriding previous 'ro.' property 'a':'1' with new value 'imported'",
                           "W Overriding previous 'ro.' property 'a':'imported' with new value "
                           "'last'"}));
}

TEST_F(PropertyFileParserTest, imports_expand_filter_and_fail_on_their_own) {
  SetProperty("ro.sku", "eu");
  Write("/eu.prop", "ro.eu=1\nx.eu=1\nimport /never.prop\n");
  Write("/never.prop", "ro.never=1\n");
  MakeDirectories("/directory");
  EXPECT_EQ(Parse("import /${ro.sku}.prop   ro.*  \n"
                  "import /missing.prop\n"
                  "import /${ro.none}.prop\n"
                  "import /$ro.sku\n"
                  "import /directory\n"
                  "import\t/eu.prop\n"
                  "import /${ro.none:-eu}.prop x.eu\n"
                  "import \t /never.prop\r\n"
                  "import  \n"
                  "import /eu.prop\tro.*\n"
                  "after=1\n"),
            (PropertyMap{{"ro.eu", "1"}, {"x.eu", "1"}, {"ro.never", "1"}, {"after", "1"}}));
  EXPECT_EQ(TakeLog(),
            (std::vector<std::string>{
                "E Could not expand filename ': property 'ro.none' doesn't exist while expanding "
                "'/${ro.none}.prop'",
                "E Could not expand filename ': using deprecated syntax for specifying property "
                "'ro.sku', use ${name} instead",
                "W Couldn't load property file '/directory': Unable to read file contents: Is a "
                "directory",
                "E expand filename load failed : /directory"}));
}

TEST_F(PropertyFileParserTest, unreadable_file_is_a_warning_and_leaves_the_map) {
  Write("/target.prop", "a=1\n");
  ASSERT_EQ(symlink("/target.prop", "/link.prop"), 0);
  PropertyMap map = {{"a", "0"}};
  EXPECT_FALSE(load_properties_from_file_without_se("/none.prop", nullptr, &map));
  EXPECT_FALSE(load_properties_from_file_without_se("/link.prop", nullptr, &map));
  EXPECT_EQ(map, (PropertyMap{{"a", "0"}}));
  EXPECT_EQ(TakeLog()[0],
            "W Couldn't load property file '/none.prop': open() failed: No such file or directory");
}

TEST_F(PropertyFileParserTest, a_file_being_read_is_not_entered_again_under_any_path) {
  Write("/real/a.prop", "a=1\nimport /real/b.prop\nimport /real/b.prop\nend=a\n");
  Write("/real/b.prop", "b=1\nimport /alias/a.prop\nimport /real/b.prop\nend=b\n");
  ASSERT_EQ(symlink("/real", "/alias"), 0);
  PropertyMap map;
  EXPECT_TRUE(load_properties_from_file_without_se("/real/a.prop", nullptr, &map));
  EXPECT_EQ(map, (PropertyMap{{"a", "1"}, {"b", "1"}, {"end", "a"}}));
  // The second import of b is read again; each refused path is logged once.
  EXPECT_EQ(TakeLog(), (std::vector<std::string>{
                           "E import refused, the file is being read already: /alias/a.prop",
                           "E import refused, the file is being read already: /real/b.prop",
                           "W Overriding previous 'ro.' property 'end':'b' with new value 'a'"}));
}

TEST_F(PropertyFileParserTest, import_depth_and_number_of_files_are_bounded) {
  const auto file = [](size_t i) { return "/chain/" + std::to_string(i) + ".prop"; };
  for (size_t i = 1; i <= kMaxImportDepth + 2; ++i) {
    Write(file(i), "d" + std::to_string(i) + "=1\nimport " + file(i + 1) + "\n");
  }
  PropertyMap deep;
  EXPECT_TRUE(load_properties_from_file_without_se(file(1).c_str(), nullptr, &deep));
  EXPECT_EQ(deep.size(), kMaxImportDepth);
  EXPECT_EQ(TakeLog(), std::vector<std::string>{"E import refused, nested too deep: " +
                                                file(kMaxImportDepth + 1)});

  std::string imports;
  for (size_t i = 0; i < kMaxFilesPerLoad + 5; ++i) imports += "import /one.prop\n";
  Write("/one.prop", "one=1\n");
  EXPECT_EQ(Parse(imports + "after=1\n"), (PropertyMap{{"one", "1"}, {"after", "1"}}));
  EXPECT_EQ(TakeLog(), std::vector<std::string>{"E import refused, too many files: /one.prop"});
}

TEST(PropertyLegality, names) {
  for (const char* name : {"a-b:c@d_e.f", "A9", "-", "ro.x"}) {
    EXPECT_TRUE(IsLegalPropertyName(name)) << name;
  }
  for (const char* name : {"", ".", "a..b", ".a", "a.", "a b", "a/b", "a\xc3\xa4", "a=b"}) {
    EXPECT_FALSE(IsLegalPropertyName(name)) << name;
  }
  EXPECT_TRUE(IsLegalPropertyName(std::string(1000, 'a')));
}

TEST(PropertyLegality, values) {
  EXPECT_TRUE(IsLegalPropertyValue("a", std::string(91, 'v')).ok());
  EXPECT_TRUE(IsLegalPropertyValue("ro.a", std::string(92, 'v')).ok());
  EXPECT_TRUE(IsLegalPropertyValue("a", "gr\xc3\xbc\xc3\x9f").ok());
  EXPECT_EQ(IsLegalPropertyValue("roa", std::string(92, 'v')).error().message(),
            "Property value too long");
  EXPECT_EQ(IsLegalPropertyValue("ro.a", "\xff").error().message(),
            "Value is not a UTF8 encoded string");
}

TEST_F(DeviceTest, expand_props_replaces_references) {
  SetProperty("a", "A");
  SetProperty("ro.x", "X");
  SetProperty("empty", "");
  const std::pair<const char*, const char*> expanded[] = {
      {"", ""},          {"plain", "plain"},   {"a$$b", "a$b"},        {"end$", "end"},
      {"end$$", "end$"}, {"<${a}>", "<A>"},    {"${a}${ro.x}", "AX"},  {"${ro.x:-def}", "X"},
      {"$", ""},         {"${n:-def}", "def"}, {"${n:-b:-c}", "b:-c"}, {"${empty:-d}!", "d!"},
      {"$$${a}", "$A"},  {"}${a}{", "}A{"},    {"${n:-${a}", "${a"},
  };
  for (const auto& [src, result] : expanded) {
    EXPECT_TRUE(ExpandProps(src).ok()) << src;
    EXPECT_EQ(*ExpandProps(src), result) << src;
  }
  const std::pair<const char*, const char*> failing[] = {
      {"x${a", "unexpected end of string in 'x${a', looking for }"},
      {"x$ro.x/y", "using deprecated syntax for specifying property 'ro.x/y', use ${name} instead"},
      {"x${}", "invalid zero-length property name in 'x${}'"},
      {"${:-x}", "invalid zero-length property name in '${:-x}'"},
      {"x${n}y", "property 'n' doesn't exist while expanding 'x${n}y'"},
      {"${n:-}", "property 'n' doesn't exist while expanding '${n:-}'"},
  };
  for (const auto& [src, message] : failing) {
    EXPECT_FALSE(ExpandProps(src).ok()) << src;
    EXPECT_EQ(ExpandProps(src).error().message(), message);
  }
  // A value longer than what property_get would give is expanded whole.
  SetProperty("ro.long", std::string(200, 'l'));
  EXPECT_EQ(ExpandProps("${ro.long}")->size(), 200u);
}
