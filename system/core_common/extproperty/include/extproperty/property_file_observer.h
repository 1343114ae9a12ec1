#pragma once

#include <stddef.h>

#include <string_view>

#include "extproperty/init_extension_property.h"

// A view on the library's reading of property files, for tools that load the library on a
// workstation. init leaves it alone: without an observer nothing is told, logged or called.
namespace android {
namespace init {

// What became of a line.
enum class PropertyLineOutcome {
  kBlank,                // empty or a comment
  kNoProperty,           // no "=": skipped
  kFiltered,             // a property that the filter of the read keeps out
  kSet,                  // a property that the map did not hold
  kReplaced,             // one that it held with another value
  kSameAgain,            // one that it held with this value
  kImportFollowed,       // the imported file is entered next
  kImportMissing,        // there is no such file
  kImportRefused,        // a circle, too deep, or too many files
  kImportNotExpandable,  // the path refers to what cannot be expanded
};

struct PropertyLine {
  size_t number = 0;      // from 1
  std::string_view text;  // as it stands in the file, without the line feed
  PropertyLineOutcome outcome = PropertyLineOutcome::kBlank;
  // The property; of an import the expanded path, or what cannot be expanded, and the filter.
  std::string_view name;
  std::string_view value;
  std::string_view replaced;  // the value that the map held, of kReplaced
};

// Is told what each reading of a property file does, in order, on the thread that reads. The views
// are good during the call only. It must not throw, nor load property files itself.
class PropertyFileObserver {
 public:
  // A file is entered: a loader's, or one that a followed import names. `filter` is empty where
  // none applies. `properties` is the map that its properties go into; it tells loads apart.
  virtual void EnterFile(std::string_view path, std::string_view filter,
                         const PropertyMap* properties) = 0;
  // The file entered last, and not left yet, is left. `error` is empty where it could be read; else
  // it has no lines.
  virtual void LeaveFile(std::string_view error) = 0;
  virtual void ReadLine(const PropertyLine& line) = 0;

 protected:
  ~PropertyFileObserver() = default;
};

}  // namespace init
}  // namespace android

// Makes `observer` see every reading that begins from here on, or none if null. It is the caller's
// and has to live until it is replaced and all readings that began before have ended.
extern "C" void KSSI_OBSERVE_PropertyFiles(android::init::PropertyFileObserver* observer);
