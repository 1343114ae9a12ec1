#pragma once

#include "VemraExtensionProperty/init_extension_property_impl.h"

namespace android {
namespace init {

// The body of the COTA bind thread: runs the COTA operations that are requested through
// "sys.cota.bind.load.properties" on `object`, with `cb`, until the completion word is posted or
// the property has been empty for about 20 seconds in all. `object` must outlive the call. Takes no
// lock: whoever posts requests does not send service commands at the same time, and the loaders
// that write the object's keys do not run meanwhile. Nothing above it catches what an operation
// throws: that ends the process.
void doBindCotaMountThread(InitExtensionPropertyImpl* object, PropertyApplyCallback cb);

}  // namespace init
}  // namespace android
