#include "host/extprop/carriers/carrier_keys.h"

#include <android-base/strings.h>

#include <map>
#include <set>

#include "host/extprop/boot/device_layout.h"
#include "host/extprop/render/render_text.h"
#include "host/extprop/survey/survey.h"

namespace extprop {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CarrierKey, kind, name, target, first, sources, never, listed)

namespace {

using MappedKeys = std::map<std::string, MappedKey>;

// Where in the map below the files are, beside the directories by their names.
constexpr const char* kFiles = "etc/";

// What the library reads for keys, R/etc/build.KEY.prop and R/properties/KEY/DIRECTORY, of what is
// to be bound yet or of all else.
std::map<std::string, MappedKeys> FindKeyed(const Survey& survey, bool waiting) {
  std::map<std::string, MappedKeys> found;
  for (size_t root = 0; root < survey.roots.size(); ++root) {
    if ((survey.roots[root].kind == SurveyedRoot::Kind::kWaiting) != waiting) continue;
    for (const auto& [path, file] : survey.files) {
      const bool counts = file.root == root && file.kind == FileKind::kKeyedFile;
      if (counts) found[kFiles][file.keyed.key].files.push_back(path);
    }
    for (const SurveyedDirectory& each : survey.directories) {
      if (each.root == root) found[each.kind][each.key].files.push_back(each.path);
    }
  }
  return found;
}

std::vector<CarrierKey> FindKeys(const Survey& survey) {
  const MappedKeys nv_keys = MappingsOf(survey, kNvMapping);
  const MappedKeys first_keys = MappingsOf(survey, kFirstMapping);
  std::map<std::string, MappedKeys> found = FindKeyed(survey, false);
  std::map<std::string, MappedKeys> waiting = FindKeyed(survey, true);
  const MappedKeys& files = found[kFiles];
  std::vector<CarrierKey> keys;

  for (const KeyedDirectory& keyed : kKeyedDirectories) {
    for (const auto& [name, known] : found[keyed.directory]) {
      keys.push_back({keyed.kind, name, name, "", known.files});
      const bool is_trimmed = android::base::Trim(name) == name;
      if (!is_trimmed) keys.back().never = "white space at its ends, which no property file keeps";
    }
    for (const auto& [name, known] : waiting[keyed.directory]) {
      keys.push_back({keyed.kind, name, name, "", known.files, "", false});
    }
  }
  std::set<std::string> nv_targets;
  for (const auto& [name, known] : nv_keys) {
    nv_targets.insert(known.target);
    const MappedKey first = ValueIn(first_keys, name), file = ValueIn(files, known.target);
    CarrierKey key = {"nv", name, known.target, first.target, known.files};
    key.sources.insert(key.sources.end(), first.files.begin(), first.files.end());
    key.sources.insert(key.sources.end(), file.files.begin(), file.files.end());
    if (name.size() > kNvKeySize) key.never = "over eight bytes, so that no NV key matches";
    keys.push_back(std::move(key));
  }
  for (const auto& [name, known] : files) {
    const MappedKey first = ValueIn(first_keys, name);
    CarrierKey key = {"ssv", name, name, first.target, known.files};
    const bool may_be_any = name.find('-') == std::string::npos || !first.files.empty();
    key.listed = nv_targets.count(name) == 0 && !IsOperatorKey(name) && may_be_any;
    keys.push_back(std::move(key));
  }
  for (const auto& [name, known] : files) {
    if (!IsOperatorKey(name)) continue;
    keys.push_back({"operator", name, name, "", known.files});
    keys.back().listed = nv_targets.count(name) == 0;
  }
  for (const auto& [name, known] : first_keys) {
    const bool is_nv = nv_keys.count(name) != 0 && name.size() <= kNvKeySize;
    const bool is_other = is_nv || files.count(name) != 0;
    keys.push_back({"vmcarrier", name, name, known.target, known.files});
    keys.back().listed = !is_other;
    // Of the others nothing tells which kind they are.
    if (name.size() <= kNvKeySize) keys.push_back({"nv", name, "", "", {}, "", false});
    keys.push_back({"ssv", name, name, "", {}, "", false});
  }
  for (const auto& [name, known] : waiting[kFiles]) {
    for (const char* kind : {"ssv", "operator"}) {
      keys.push_back({kind, name, name, "", known.files, "", false});
    }
  }
  return keys;
}

std::string Doubt(const CarrierChoice& choice, const std::vector<CarrierKey>& keys) {
  std::string key = choice.key;
  std::string doubt;
  if (choice.kind == "nv" && key.size() > kNvKeySize) {
    key.resize(kNvKeySize);
    doubt = "only the first eight bytes of an NV key count, " + key;
  }
  if (choice.kind == "operator") key = LowerCased(key);
  std::set<std::string> names, kinds;
  for (const CarrierKey& known : keys) {
    if (!known.never.empty()) continue;
    if (known.kind == choice.kind) names.insert(known.name);
    if (known.name == key && known.listed) kinds.insert(known.kind);
  }
  if (names.count(key) != 0) return doubt;
  doubt += (doubt.empty() ? "" : "; ") + std::string("nothing on the device knows this key");
  if (!kinds.empty()) {
    return doubt + " as " + choice.kind + ", but as " + android::base::Join(kinds, " and ");
  }
  const std::vector<std::string> nearest = NearestNames(key, names);
  if (!nearest.empty()) doubt += "; the nearest are " + android::base::Join(nearest, ", ");
  return doubt;
}

// Surveys the plan's device and returns what `find` returns of that.
template <typename Found>
Result<Found> Ask(const BootPlan& plan, const std::function<Found(const Survey&)>& find) {
  Result<StartedBoot> survey =
      StartSurvey(plan, [&](const Survey& found) -> json { return find(found); });
  if (!survey.ok()) return survey.error();
  Result<json> answer = survey->Finish();
  if (!answer.ok()) return answer.error();
  return answer->get<Found>();
}

}  // namespace

json ToJson(const CarrierKey& key) {
  json object = key;
  object.erase("listed");
  return object;
}

Result<std::vector<CarrierKey>> FindCarrierKeys(const BootPlan& plan) {
  return Ask<std::vector<CarrierKey>>(plan, [](const Survey& survey) {
    WarnOfUnreadable(*survey.record, survey.unreadable);
    return FindKeys(survey);
  });
}

Result<std::set<std::string>> FindSurveyedNames(const BootPlan& plan) {
  return Ask<std::set<std::string>>(plan, [](const Survey& survey) {
    std::set<std::string> names;
    const auto& files = survey.record->property_files;
    for (const PropertyLine* line : Only<PropertyLine>(*survey.record)) {
      const FileContent content = ContentOf(files[OutermostFile(*survey.record, line->file)].path);
      if (Sets(*line) && IsProperty(content, line->name)) names.insert(line->name);
    }
    return names;
  });
}

std::vector<std::string> Doubts(const std::vector<CarrierChoice>& choices,
                                const std::vector<CarrierKey>& keys) {
  std::vector<std::string> doubts;
  for (const CarrierChoice& choice : choices) {
    if (choice.IsProperty()) continue;
    const std::string doubt = Doubt(choice, keys);
    if (!doubt.empty()) doubts.push_back(choice.Text() + ": " + doubt);
  }
  return doubts;
}

}  // namespace extprop
