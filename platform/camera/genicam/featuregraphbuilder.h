// Makes the graph of a camera's features from its description.
#pragma once

#include "featuregraph.h"

// Touches no register. With the device's lock held; of the description, only the nodes are used afterwards. Empty where
// there is no root category.
FeatureGraph BuildFeatureGraph(ArvGc *genicam);
