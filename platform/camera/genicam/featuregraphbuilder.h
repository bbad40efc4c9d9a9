// Makes the graph of a camera's features from its description.
#pragma once

#include "featuregraph.h"

// Touches no register. With the device's lock held; nothing of the description's is used after it but the nodes. Empty
// where there is no root category.
FeatureGraph BuildFeatureGraph(ArvGc *genicam);
