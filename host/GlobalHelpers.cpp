// Four plain global functions of unit arithmetic that game scripts share.
#include <stdexcept>

#include "host/Binding.h"
#include "host/HostModules.h"
#include "host/ProcessObjects.h"

namespace orvane {

void registerGlobalHelpers() {
    engine.pushFunction("add", [](const VariableArray& args) {
        if (args.size() != 2) throw std::runtime_error("add requires exactly 2 arguments");
        float sum = floatValue(args[0], "add", "left") + floatValue(args[1], "add", "right");
        if (args[0].type == VarType::Float || args[1].type == VarType::Float) return Variable(sum);
        return Variable(saturatingInt(double(sum)));
    });
    engine.pushFunction("dFeet", [](const VariableArray& args) {
        if (args.size() != 2) throw std::runtime_error("dFeet(feet, inches) requires exactly 2 arguments");
        double feet = numericValue(args[0], "dFeet", "feet"), inches = numericValue(args[1], "dFeet", "inches");
        return Variable(float(inches / 12.0 + feet));
    });
    engine.pushFunction("dMetres", [](const VariableArray& args) {
        if (args.size() != 2) throw std::runtime_error("dMetres(metres, centimetres) requires exactly 2 arguments");
        double metres = numericValue(args[0], "dMetres", "metres");
        double centimetres = numericValue(args[1], "dMetres", "centimetres");
        return Variable(float(metres * 3.280839895 + centimetres * 0.032808399));
    });
    engine.pushFunction("calcHeight", [](const VariableArray& args) {
        if (args.size() != 1) throw std::runtime_error("calcHeight(feet) requires exactly 1 argument");
        return Variable(float((numericValue(args[0], "calcHeight", "feet") - 5.8825) * 184.95));
    });
}

}  // namespace orvane
