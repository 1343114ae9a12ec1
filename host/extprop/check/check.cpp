#include "host/extprop/check/check.h"

#include <algorithm>

#include "host/extprop/boot/in_tree.h"
#include "host/extprop/boot/pack.h"
#include "host/extprop/check/check_context.h"
#include "host/extprop/check/meanwhile.h"
#include "host/extprop/check/unread_files.h"

namespace extprop {

namespace {

using android::base::Error;
using android::base::Result;

constexpr const char* kBindImage = "mount_and_check_load";
constexpr const char* kBindModule = "module_bind_single";
constexpr const char* kMakeDirectories = "bind_basic_point";

// The mount info file is either an image's or that of the modules' directories.
bool NamesModuleDirectories(const BootRecord& boot) {
  bool any = false;
  for (const PropertyLine* line : Only<PropertyLine>(boot)) {
    if (boot.property_files[line->file].path != kMountInfoFile || !Sets(*line)) continue;
    if (line->name == "sys.cotaimg.verify" || line->name == "sys.cota.load.properties") {
      return false;
    }
    any = true;
  }
  return any;
}

// A packed record, and what it says about a further boot, which is not to cost its unpacking.
struct PackedBoot {
  std::string record;
  bool names_module_directories = false;
};

constexpr auto FieldsOf(const PackedBoot*) {
  return std::make_tuple(
      std::pair("record", &PackedBoot::record),
      std::pair("names_module_directories", &PackedBoot::names_module_directories));
}

Result<PackedBoot> BootWithCommands(BootPlan plan, const std::vector<const char*>& commands) {
  plan.lines = true;
  for (const char* command : commands) {
    plan.steps.push_back({FindLoader("service", true), command});
  }
  Result<std::string> boot = RunBootFor(plan, [](const BootRecord& record) {
    return Pack(PackedBoot{Pack(record), NamesModuleDirectories(record)});
  });
  if (!boot.ok()) return boot.error();
  return Unpack<PackedBoot>(*boot);
}

// Returns the packed records of the plan's boot, at whose end the info files that are left are
// served, and of another where that cannot be done in one.
Result<std::vector<std::string>> Boots(const BootPlan& plan) {
  Result<PackedBoot> boot = BootWithCommands(plan, {kBindImage, kBindModule});
  if (!boot.ok()) return boot.error();
  std::vector<std::string> boots = {std::move(boot->record)};
  if (!boot->names_module_directories) return boots;
  Result<PackedBoot> other = BootWithCommands(plan, {kMakeDirectories});
  if (!other.ok()) return other.error();
  boots.push_back(std::move(other->record));
  return boots;
}

void CheckBoot(const BootRecord& boot, CheckContext* context) {
  for (const Entry& entry : boot.refused) {
    context->Report("refused-property", {kPropertiesPath},
                    "init refuses " + Quoted(entry.name) + ": " + entry.refused);
  }
  for (const Step& step : boot.steps) {
    if (step.error.empty()) continue;
    const std::string argument = step.argument.empty() ? "" : "=" + step.argument;
    context->Report("unfinished-boot", {kBootPath}, step.name + argument + ": " + step.error);
  }
}

// Outside the private root, as these links lead out of it.
std::vector<Finding> CheckLinks(const DeviceTree& tree) {
  std::vector<Finding> findings;
  for (const OutgoingLink& link : LinksOut(tree)) {
    findings.push_back({{link.path},
                        "outgoing-link",
                        "it leads to " + link.target + ", outside the device's files",
                        {}});
  }
  return findings;
}

void CheckAll(const std::vector<BootRecord>& boots, bool overrides, UnreadFiles* unread,
              CheckContext* context) {
  std::vector<std::vector<Reading>> of_boots;
  for (const BootRecord& boot : boots) {
    of_boots.push_back(ReadingsOf(boot));
    context->AddRoots(of_boots.back());
  }
  unread->ReadFurther();
  std::vector<Reading> all;
  for (size_t i = 0; i < boots.size(); ++i) {
    const BootRecord& boot = boots[i];
    const std::vector<Reading>& readings = of_boots[i];
    for (const Reading& reading : readings) CheckReading(reading, Imports::kOfBoot, context);
    CheckBoot(boot, context);
    // A carrier that was asked for has state files that are not the user's.
    if (!context->plan.prepare) CheckStateFiles(readings, context);
    CheckCota(boot, readings, context);
    if (overrides) CheckOverrides(boot, readings, context);
    all.insert(all.end(), readings.begin(), readings.end());
  }
  unread->Check(boots[0], all);
}

Result<void> CheckMeanwhile(const BootPlan& plan, const LibraryFunctions& library, bool overrides,
                            const Meanwhile::Input& input, const Meanwhile::Output& output) {
  Result<std::string> done = RunInTree(plan.device, [&]() -> Result<std::string> {
    if (plan.prepare) plan.prepare();
    CheckContext context(plan, library);
    UnreadFiles unread(&context);
    Result<std::string> packed = input();
    if (!packed.ok()) return packed.error();
    std::vector<BootRecord> boots;
    for (const std::string& boot : Unpack<std::vector<std::string>>(*packed)) {
      boots.push_back(Unpack<BootRecord>(boot));
    }
    CheckAll(boots, overrides, &unread, &context);
    output(Pack(std::vector<Finding>(context.findings.begin(), context.findings.end())));
    return "";
  });
  if (!done.ok()) return done.error();
  return {};
}

}  // namespace

const std::vector<FindingKind>& FindingKinds() {
  static const std::vector<FindingKind> kinds = {
      {"illegal-name", "error", "a property name that init refuses"},
      {"illegal-value", "error", "a value that is too long or no text"},
      {"refused-property", "error", "a property to boot with that init refuses"},
      {"duplicate-name", "warning", "a name set twice in one file"},
      {"not-a-property", "warning", "a line that sets nothing and is no comment"},
      {"byte-order-mark", "error", "a byte order mark, which spoils the first line"},
      {"nul-byte", "error", "a NUL byte, which ends what is read of its line"},
      {"unreadable-file", "error", "a file or directory that cannot be read"},
      {"outgoing-link", "warning", "a symbolic link that leads out of DIR"},
      {"missing-partition", "warning", "a partition without a build.prop"},
      {"missing-import", "warning", "an import of a file that is not there"},
      {"unexpandable-import", "error", "an import whose path needs a property that is not set"},
      {"refused-import", "error", "an import that leads back to its own file, or too deep"},
      {"partition-override", "note", "a value that replaces an earlier partition's; --overrides"},
      {"directory-order", "warning", "files of one directory that set a name differently"},
      {"unmapped-key", "warning", "the device's carrier key, which no mapping file knows"},
      {"missing-target", "warning", "a mapping to what no partition has files for"},
      {"long-nv-key", "warning", "a mapping of more than eight bytes, which no NV key has"},
      {"unknown-carrier", "warning", "a state file's carrier that no partition knows"},
      {"unreached-file", "warning", "a carrier's file that no known key leads to"},
      {"unreachable-directory", "warning", "a carrier directory that no key can reach"},
      {"old-state-file", "warning", "a state file in the old format"},
      {"trailing-space", "warning", "a blank at the end of a bare key"},
      {"line-end-in-key", "error", "a line end that is part of a bare key"},
      {"module-directory", "error", "a COTA module directory that cannot be made"},
      {"failed-bind", "error", "a COTA image or module that cannot be bound"},
      {"unfinished-boot", "error", "a call that ends the boot"},
  };
  return kinds;
}

const FindingKind& KindOf(const Finding& finding) {
  const std::vector<FindingKind>& kinds = FindingKinds();
  return *std::find_if(kinds.begin(), kinds.end(),
                       [&](const FindingKind& kind) { return finding.id == kind.id; });
}

Result<std::vector<Finding>> CheckTree(const BootPlan& plan, bool overrides) {
  Result<Factory> factory = LoadLibrary(plan.library);
  if (!factory.ok()) return factory.error();
  const LibraryFunctions library = FindLibraryFunctions(*factory);
  if (library.load_properties_from_file_without_se == nullptr ||
      library.ExtensionPartitionRoots == nullptr || library.IsLegalPropertyName == nullptr) {
    return Error() << "this library lacks the functions that a check calls";
  }
  // The files that no boot has to tell of are read while it goes on.
  Result<Meanwhile> check =
      Meanwhile::Start([&](const Meanwhile::Input& input, const Meanwhile::Output& output) {
        return CheckMeanwhile(plan, library, overrides, input, output);
      });
  if (!check.ok()) return check.error();
  const std::vector<Finding> links = CheckLinks(plan.device);
  Result<std::vector<std::string>> boots = Boots(plan);
  if (!boots.ok()) return boots.error();
  Result<std::string> found = check->Finish(Pack(*boots));
  if (!found.ok()) return found.error();
  std::vector<Finding> findings = Unpack<std::vector<Finding>>(*found);
  findings.insert(findings.end(), links.begin(), links.end());
  std::sort(findings.begin(), findings.end());
  return findings;
}

}  // namespace extprop
