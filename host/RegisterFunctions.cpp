// Every module and helper that exists, registered in the engine's fixed order.
#include "host/HostModules.h"
#include "host/ProcessObjects.h"

namespace orvane {

void registerFunctions() {
    engine.pushVariable("Orvane", makeOrvaneModule());
    registerGlobalHelpers();
}

}  // namespace orvane
