#include "utils/property_file_parser.h"

#include <unistd.h>

#include "tests/device_test.h"
#include "utils/expand_props.h"

using namespace android::init;

class PropertyFileParserTest : public DeviceTest {
 protected:
  // Returns what a file of this content adds to a map, and what is logged about it.
  static std::string Parse(const std::string& content, const char* filter = nullptr,
                           const std::string& map_before = "") {
    Write("/parsed", content);
    PropertyMap map = Map(map_before);
    EXPECT_TRUE(load_properties_from_file_without_se("/parsed", filter, &map));
    return WithLog(Text(map));
  }
};

TEST_F(PropertyFileParserTest, lines_are_stripped_cut_skipped_and_filtered) {
  EXPECT_EQ(Parse("  # x=1\nx = 1 \n\v\f\t y\t=\ta b \r\nx2 =a=b\nimport/parsed\n\n "
                  "\t\r\n=nameless\nempty=\n\b=backspace is no white space\nz#=#no "
                  "comment\nlast=no line feed"),
            "=nameless \b=backspace is no white space empty= last=no line feed x=1 x2=a=b y=a b "
            "z#=#no comment");
  const std::string nul("a=1 \0 2\n\0b=2\nc\0=3\nd=4", 21);
  EXPECT_EQ(Parse(nul), "a=1 d=4");
  // A filter keeps an exact name or a prefix, and stops imports.
  Write("/other", "other=1\n");
  const std::string content = "ro.a=1\nro.ab=2\nb=3\nimport /other\nimport x=y\nro.=0";
  EXPECT_EQ(Parse(content, "ro.*"), "ro.=0 ro.a=1 ro.ab=2");
  EXPECT_EQ(Parse(content, "ro.a"), "ro.a=1");
  EXPECT_EQ(Parse(content, ""), "b=3 other=1 ro.=0 ro.a=1 ro.ab=2");
}

TEST_F(PropertyFileParserTest, imports_expand_filter_and_fail_on_their_own) {
  Set("ro.sku=eu");
  Write("/eu", "ro.eu=1\nx.eu=1\nimport /never\n");
  Write("/never", "ro.never=1\n");
  MakeDirectories("/dir");
  EXPECT_EQ(Parse("import /${ro.sku}   ro.*  \nimport /missing\nimport /${ro.no}\nimport "
                  "/$ro.sku\nimport /dir\nimport\t/eu\nimport /${ro.no:-eu} x.eu\nimport \t "
                  "/never\r\nimport  \nimport /eu\tro.*\nafter=1\n"),
            "after=1 ro.eu=1 ro.never=1 x.eu=1 | E Could not expand filename ': property 'ro.no' "
            "doesn't exist while expanding '/${ro.no}' | E Could not expand filename ': using "
            "deprecated syntax for specifying property 'ro.sku', use ${name} instead | W Couldn't "
            "load property file '/dir': Unable to read file contents: Is a directory | E expand "
            "filename load failed : /dir");
}

TEST_F(PropertyFileParserTest, import_of_a_file_being_read_is_refused_under_any_path) {
  Write("/b", "b=1\nimport /alias/parsed\nimport /b\nend=b\n");
  ASSERT_EQ(symlink("/", "/alias"), 0);
  // The second import of b is read again; each refused path is logged once.
  EXPECT_EQ(Parse("a=1\nimport /b\nimport /b\nend=a\n"),
            "a=1 b=1 end=a | E import refused, the file is being read already: /alias/parsed | E "
            "import refused, the file is being read already: /b | W Overriding previous 'ro.' "
            "property 'end':'b' with new value 'a'");
}

TEST_F(PropertyFileParserTest, import_depth_and_number_of_files_are_bounded) {
  for (int i = 2; i <= 34; ++i) {
    Write("/" + std::to_string(i), "d=32\nimport /" + std::to_string(i + 1) + "\n#");
  }
  Write("/32", "depth=32\nimport /33\n");
  EXPECT_EQ(Parse("import /2\n"), "d=32 depth=32 | E import refused, nested too deep: /33");
  // The file itself counts, so that the last import is the first one refused.
  WriteFiles("/one one=1 | /last last=1");
  std::string imports;
  for (size_t i = 1; i < kMaxFilesPerLoad; ++i) imports += "import /one\n";
  EXPECT_EQ(Parse(imports + "import /last\nafter=1\n"),
            "after=1 one=1 | E import refused, too many files: /last");
}

TEST(PropertyLegality, names_and_values) {
  EXPECT_TRUE(IsLegalPropertyName("a-b:c@d_e.f") && IsLegalPropertyName(std::string(1000, 'a')));
  for (const char* name : {"A9", "-", "Z0z"}) EXPECT_TRUE(IsLegalPropertyName(name)) << name;
  for (const char* name : {"", ".", "a..b", ".a", "a.", "a b", "a/b", "a\xc3\xa4", "a=b"}) {
    EXPECT_FALSE(IsLegalPropertyName(name)) << name;
  }
  EXPECT_TRUE(IsLegalPropertyValue("a", std::string(91, 'v')).ok());
  EXPECT_TRUE(IsLegalPropertyValue("ro.a", std::string(92, 'v')).ok());
  EXPECT_TRUE(IsLegalPropertyValue("a", "gr\xc3\xbc\xc3\x9f").ok());
  EXPECT_EQ(IsLegalPropertyValue("roa", std::string(92, 'v')).error().message(),
            "Property value too long");
  EXPECT_EQ(IsLegalPropertyValue("ro.a", "\xff").error().message(),
            "Value is not a UTF8 encoded string");
}

TEST_F(DeviceTest, expand_props_replaces_references) {
  // Longer than what property_get would give.
  const std::string value(200, 'l');
  Set("a=A ro.x=X a:b=C empty= ro.long=" + value);
  for (const auto& row : Table("a$$b,a$b end$,end end$$,end$ <${a}>,<A> ${a}${ro.x},AX $, x,x "
                               "${ro.x:-def},X ${n:-def},def ${n:-b:-c},b:-c ${empty:-d}!,d! "
                               "$$${a},$A ${a:b},C }${a}{,}A{ ${n:-${a},${a ${ro.long}," +
                               value)) {
    const auto result = ExpandProps(row[0]);
    EXPECT_EQ(result.ok() ? *result : result.error().message(), row[1]) << row[0];
  }
  const char* const failing[][2] = {
      {"x${a", "unexpected end of string in 'x${a', looking for }"},
      {"x$ro.x/y", "using deprecated syntax for specifying property 'ro.x/y', use ${name} instead"},
      {"x${}", "invalid zero-length property name in 'x${}'"},
      {"${:-x}", "invalid zero-length property name in '${:-x}'"},
      {"${n:-}", "property 'n' doesn't exist while expanding '${n:-}'"}};
  for (const auto& [src, message] : failing) EXPECT_EQ(ExpandProps(src).error().message(), message);
}
