#pragma once

#include <map>
#include <string>

// What init sees of libextproperty.so: one exported factory and the interface behind it. init loads
// the library, resolves KSSI_FETCH_IInitExtensionProperty, calls it once, and then calls the
// loaders through the returned object's virtual table.
namespace android {
namespace init {

// Property name to value, both byte strings, ordered by byte comparison of the names. A function
// that receives a PropertyMap* adds to the caller's map and never clears it.
using PropertyMap = std::map<std::string, std::string>;

// How the host receives properties. The map is the host's own copy. The mode tells the host how to
// apply it:
//   0  an ordinary hand-over;
//   1  the writable (non-"ro.") properties of the company partition after its date changed;
//   2  persistent values that the library records or resets.
// A callback is not called after the operation that received it has returned, except by the COTA
// bind thread, which calls it from its own thread for as long as that thread lives. It must not be
// null, must not throw, and must not call slot 12.
using PropertyApplyCallback = void (*)(int mode, PropertyMap map);

// The host calls by slot: the order of the declarations is the binding order of the virtual table,
// the two destructors being slots 0 and 1. Failures are at most logged, and reported to nobody.
// Only three things leave an operation otherwise: the two errors that slot 12 names, and
// std::bad_alloc where memory is exhausted. After any of them the object is good for further calls.
// Memory that runs out while a log line is composed ends the process.
class IInitExtensionProperty {
 public:
  virtual ~IInitExtensionProperty() = default;

  // Slot 2. Stores `name` as the library's name, replacing any earlier one.
  virtual void setLibName(const char* name) = 0;

  // Slot 3. Bind-mounts the customised media directory that "ro.sys.custommedia.sourcepath" names
  // onto `path`, which must begin with "/my_", and records the result in
  // "sys.mount.mediapath.success".
  virtual void bindCustomizeMediaPath(const char* path) = 0;

  // Slot 4. Adds the build properties of all extension partitions to `out`, in the order of
  // precedence: a later partition replaces an earlier one's value.
  virtual void loadExtensionPartitionProperties(PropertyMap* out) = 0;

  // Slot 5. Adds the build properties of the one partition whose root is `partition` to `out`.
  virtual void loadExtensionPartitionProperties(std::string partition, PropertyMap* out) = 0;

  // Slot 6. The boot loader: SIM-switch state, carrier-keyed partition properties, company update,
  // special properties, channel restore, forced connection. Returns 0.
  virtual int loadPersistOverrideProperties(PropertyApplyCallback cb) = 0;

  // Slot 7. Applies the properties of a verified COTA image.
  virtual void loadCotaOverrideProperties(PropertyApplyCallback cb) = 0;

  // Slot 8. Applies the special edition's properties from the company partition.
  virtual void loadQuasarOverrideProperties(PropertyApplyCallback cb) = 0;

  // Slot 9. Reapplies all carrier-dependent partition properties for the current keys.
  virtual void loadSimSwitchOverrideProperties(PropertyApplyCallback cb) = 0;

  // Slot 10. Applies the one kind of change that `action` names ("simSwitchCurrent",
  // "simSwitchFirst", "updateDataCommonProp", "emptyAppchannelProp", "switchCarrierChannel"); any
  // other does nothing.
  virtual void loadSimSwitchOverrideProperties(std::string action, PropertyApplyCallback cb) = 0;

  // Slot 11. Reserved: does nothing and returns false.
  virtual bool loadOverrideProperty(std::string /*name*/, std::string /*value*/,
                                    PropertyApplyCallback /*cb*/) {
    return false;
  }

  // Slot 12. Runs one command of the COTA service; "check_mount" starts the COTA bind thread.
  // Throws std::system_error where the platform refuses that thread, and, from the other commands,
  // std::out_of_range for a display version name of one character that a COTA version is to be
  // appended to. What is thrown on the bind thread ends the process.
  //
  // The bind thread reads the carrier keys that slots 6, 9 and 10 write, and takes no lock: while
  // it may serve a request, the host calls none of them, nor a command that does what is requested.
  virtual void loadCotaServiceOverrideProperties(std::string command, PropertyApplyCallback cb) = 0;
};

}  // namespace init
}  // namespace android

// Returns the process-wide service object, created on the first call, and stores `libName` as the
// library's name. The object is never freed: the caller must not delete it. Threads that call at
// once get the same object, created once, but the name is stored without a lock: they have to take
// turns, as init does, which calls from one thread.
extern "C" android::init::IInitExtensionProperty* KSSI_FETCH_IInitExtensionProperty(
    const char* libName);
