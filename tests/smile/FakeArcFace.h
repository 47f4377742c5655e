// The face half of libarccamera.so for unit tests: records its calls and answers from a script.
#pragma once

#include <arccamera/face.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kov::test {

struct FakeArcFace {
    std::map<std::string, MRESULT> results;  // by operation; 0 where missing
    bool allocates = true;
    bool makesManagers = true;
    std::vector<__tag_rect> faces;
    int32_t faceCount = -1;  // reported in place of the number of faces when it is 0 or more
    int32_t faceInfo = 7;
    std::vector<__tag_rect> smiles;
    int32_t examined = 0;     // IFaceNumber
    int32_t smileCount = -1;  // as faceCount
    int blocksAlive = 0;
    int managersAlive = 0;
    ASSD_IMAGE lastImage = {};
    ASSD_FACE_INPUT lastInput = {};
    std::function<void()> during;  // run within each call
};

FakeArcFace& fakeArcFace();

}  // namespace kov::test
