// The face half of libarccamera.so for tests: records its calls with their handles and answers from a script.
#pragma once

#include <arccamera/face.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kov::test {

/// Handles are numbered as they are made: blocks b1, b2, ..., managers m1, ..., face engines f1, ..., smile engines s1,
/// ...
struct FakeArcFace {
    std::map<std::string, MRESULT> results;  // by operation; 0 where missing
    bool allocates = true;
    bool makesManagers = true;
    std::vector<__tag_rect> faces;  // without any, the engine's array is null
    int32_t faceCount = -1;         // reported in place of the number of faces when it is 0 or more
    std::vector<__tag_rect> smiles;
    int32_t examined = 0;                            // IFaceNumber
    int32_t smileCount = -1;                         // as faceCount
    std::function<void(const std::string&)> during;  // run within each call
    std::map<char, int> made;                        // by kind
};

FakeArcFace& fakeArcFace();

}  // namespace kov::test
