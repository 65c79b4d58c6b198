#include "app/single_instance.h"

namespace tidewatch::SingleInstance {

Outcome settle(const Operations& operations) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    switch (operations.claimName()) {
      case Claim::acquired:
        return {Outcome::Kind::run, {}};
      case Claim::noBus:
        return {Outcome::Kind::run,
                "tidewatch: no session bus; a second start will not find this one and will run beside it"};
      case Claim::heldByAnother:
        if (operations.askHolderToOpenPanel()) return {Outcome::Kind::handedOver, {}};
        break;
    }
  }
  return {Outcome::Kind::unreachable,
          "tidewatch: another Tidewatch holds the session bus name " + std::string(busName) +
              " but does not answer; end it (pkill -x tidewatch-app) and start again"};
}

}  // namespace tidewatch::SingleInstance
