#include "VemraExtensionProperty/carrier/operator_carrier_key.h"

#include <wctype.h>

#include <string>

#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kOperatorA[] = "persist.sys.vemra.operator.opta";
constexpr char kOperatorB[] = "persist.sys.vemra.operator.optb";

std::string LowerCased(std::string text) {
  for (char& c : text) {
    c = static_cast<char>(towlower(static_cast<wint_t>(static_cast<unsigned char>(c))));
  }
  return text;
}

}  // namespace

std::string OperatorCarrierKey() {
  const std::string operator_a = ReadSystemProperty(kOperatorA);
  const std::string operator_b = ReadSystemProperty(kOperatorB);
  if (operator_a.empty() || operator_b.empty()) return std::string();
  return LowerCased(operator_a) + "-" + LowerCased(operator_b);
}

}  // namespace init
}  // namespace android
