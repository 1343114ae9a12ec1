#include <gtest/gtest.h>

#include "host/extprop/tests/run_tool.h"
#include "host/sandbox/tests/temp_tree.h"

namespace {

const std::string kCarrier = "mnt/vendor/my_carrier/";

// A device of two first keys and a current one.
class ExpectTest : public testing::Test {
 protected:
  ExpectTest() {
    tree_.Write("odm/build.prop",
                "ro.brand=Vemra\nro.carrier=open\nimport /odm/${ro.boot.hw.sku:-none}.prop\n");
    tree_.Write("odm/eea.prop", "ro.sku=eea\n");
    tree_.Write(kCarrier + "properties/west/SimSwitchFirstTime/a.prop",
                "ro.carrier=west\nro.simlock=1\n");
    tree_.Write(kCarrier + "properties/north/SimSwitchFirstTime/a.prop",
                "ro.brand=a,\"b\" </script>\n");
    tree_.Write(kCarrier + "properties/south/SimSwitchCurrentTime/a.prop", "ro.volte=0\n");
  }

  Outcome Expect(const std::string& content) {
    files_.Write("x.prop", content);
    return RunTool("expect " + tree_.path() + " x.prop", "cd " + files_.path() + " &&");
  }

  TempTree tree_, files_;
};

TEST_F(ExpectTest, each_section_is_a_boot_and_what_is_unmet_names_the_place_that_set_it) {
  const Outcome outcome = Expect(R"(# for every device
ro.brand=Vemra
!ro.debuggable
!ro.simlock

[first=west]
ro.carrier=open
ro.simlock=*

[current=south first=west]
ro.carrier=west
ro.volte=1

[ro.boot.hw.sku=eea]
ro.sku=row
[first=wset]
ro.brand=*
[first=north]
[default]
ro.sku=*
)");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(
      outcome.out,
      R"(x.prop:2: error: [ro.brand] is [a,"b" </script>], not [Vemra] with [first=north]; set by /mnt/vendor/my_carrier/properties/north/SimSwitchFirstTime/a.prop:1 [unmet]
x.prop:4: error: [ro.simlock] is [1], not unset with [first=west], [current=south first=west]; set by /mnt/vendor/my_carrier/properties/west/SimSwitchFirstTime/a.prop:2 [unmet]
x.prop:7: error: [ro.carrier] is [west], not [open]; set by /mnt/vendor/my_carrier/properties/west/SimSwitchFirstTime/a.prop:1 [unmet]
x.prop:12: error: [ro.volte] is [0], not [1]; set by /mnt/vendor/my_carrier/properties/south/SimSwitchCurrentTime/a.prop:1 [unmet]
x.prop:15: error: [ro.sku] is [eea], not [row]; set by /odm/eea.prop:1 [unmet]
x.prop:16: error: first=wset: nothing on the device knows this key; its section is not checked [unknown-carrier]
x.prop:20: error: [ro.sku] is unset, not set to a value [unmet]
)");
  EXPECT_EQ(outcome.err, "10 expectations, 5 boots: 7 errors\n");
}

TEST_F(ExpectTest, a_bad_line_is_told_by_its_place_and_nothing_is_checked) {
  const Outcome outcome = Expect(
      "ro.a\nro.b=\n! c d\n[frist=west]\n[first=a first=b]\n[ro.a]: [b]\n[]\nro.x=1\nro.x=*\n");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.out, "");
  for (const char* error :
       {"1: error: neither", "2: error: a property without a value is unset: !ro.b",
        "3: error: [c d] is no name", "4: error: frist=west: not KIND=KEY",
        "5: error: a device has only one first", "6: error: [ro.a]:] is no name",
        "7: error: [] names no device", "9: error: [ro.x] is expected otherwise at "}) {
    EXPECT_TRUE(Has(outcome.err, std::string("x.prop:") + error)) << outcome.err << error;
  }
  EXPECT_FALSE(Has(outcome.err, "x.prop:8:")) << outcome.err;
  ExpectRefusal(RunTool("expect " + tree_.path()), 2, "FILE");
}

TEST_F(ExpectTest, what_it_writes_holds_until_the_device_is_changed) {
  const std::string written = RunTool("expect --write " + tree_.path()).out;
  EXPECT_TRUE(Has(written, "[first=west]\nro.carrier=west\nro.simlock=1\n")) << written;
  EXPECT_TRUE(Has(written, "[default]\n")) << written;
  Outcome outcome = Expect(written);
  EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
  tree_.Write(kCarrier + "properties/west/SimSwitchFirstTime/a.prop", "ro.carrier=west\n");
  outcome = Expect(written);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(Has(outcome.out, "[ro.simlock] is unset, not [1]")) << outcome.out;
}

TEST_F(ExpectTest, a_table_of_all_carriers_quotes_what_would_break_it) {
  const std::string page = files_ / "t.html", csv = files_ / "t.csv";
  const Outcome outcome = RunTool("carriers " + tree_.path() + " --html " + page + " --csv " + csv);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  std::string content;
  android::base::ReadFileToString(csv, &content);
  EXPECT_EQ(content.find("property,default,first=north,first=west,current=south\r\n"
                         "ro.brand,Vemra,\"a,\"\"b\"\" </script>\",Vemra,Vemra\r\n"
                         "ro.carrier,open,open,west,open\r\nro.simlock,,,1,\r\n"),
            0u)
      << content;
  android::base::ReadFileToString(page, &content);
  EXPECT_TRUE(Has(content, R"(a,\"b\" \u003c/script>)"));
  ExpectRefusal(RunTool("carriers " + tree_.path() + " --csv " + tree_ / "t.csv"), 2, "lies in");
}

}  // namespace
