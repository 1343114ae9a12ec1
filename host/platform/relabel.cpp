#include <selinux/android.h>
#include <selinux/restorecon.h>
#include <selinux/selinux.h>

extern "C" int selinux_android_restorecon(const char* file, unsigned int flags) {
  if (is_selinux_enabled() != 1) return 0;
  unsigned int mapped = 0;
  if (flags & SELINUX_ANDROID_RESTORECON_NOCHANGE) mapped |= SELINUX_RESTORECON_NOCHANGE;
  if (flags & SELINUX_ANDROID_RESTORECON_VERBOSE) mapped |= SELINUX_RESTORECON_VERBOSE;
  if (flags & SELINUX_ANDROID_RESTORECON_RECURSE) mapped |= SELINUX_RESTORECON_RECURSE;
  return selinux_restorecon(file, mapped);
}
