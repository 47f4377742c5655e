// The face half of libarccamera.so for tests: records its calls with their handles and answers from a script.
#pragma once

#include <arccamera/face.h>

#include <map>
#include <vector>

#include "tests/support/ScriptedCall.h"

namespace kov::test {

/// Handles are numbered as they are made: blocks b1, b2, ..., managers m1, ..., face engines f1, ..., smile engines s1,
/// ...
struct FakeArcFace : Script {
    bool allocates = true;
    bool makesManagers = true;
    std::vector<__tag_rect> faces;  // without any, the engine's array is null
    int32_t faceCount = -1;         // reported in place of the number of faces when it is 0 or more
    std::vector<__tag_rect> smiles;
    int32_t examined = 0;      // IFaceNumber
    int32_t smileCount = -1;   // as faceCount
    std::map<char, int> made;  // by kind
};

inline FakeArcFace gFakeArcFace;

}  // namespace kov::test
