#include "trust/product.h"

namespace tessel::product {

platform::machine::Product InstalledIn(cvn::StringView folder) {
  return {.name = u"Ambry Shield",
          .publisher = u"Ambry",
          .installFolder = folder,
          .services = {{kMainService, u"Ambry Shield Security Service"},
                       {kUpdateService, u"Ambry Shield Update Service"}}};
}

}  // namespace tessel::product
