// Where a camera keeps its GenICam description. Aravis loads whatever the camera names, so that is checked first.
#pragma once

#include <cstdint>

class GvcpClient;

// 0, or TOV_CAM_ERR_GENICAM_TREE for a file of the host, another server, an absurd size, or an archive that is broken
// or unpacks to an absurd size. As the client: any one thread at a time.
std::int32_t CheckDescriptionSource(GvcpClient &camera);
