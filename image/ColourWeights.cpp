#include "image/ColourWeights.h"

namespace orvane {

float gred1 = 0.55f, gred2 = 1.0f;
float ggreen1 = 0.65f, ggreen2 = 1.457f;
float gblue1 = 0.475f, gblue2 = 2.0f;

}  // namespace orvane
