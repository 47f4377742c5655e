// Opening a frame source by its text.

#include "host/camera/Sources.h"

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "host/camera/FileSources.h"
#include "host/camera/PushSource.h"
#include "host/camera/SourceOptions.h"
#include "host/camera/scenes/AddMe.h"
#include "host/camera/scenes/Crossing.h"
#include "host/camera/scenes/Landscape.h"
#include "host/camera/scenes/Portrait.h"
#include "host/camera/scenes/StillLife.h"

namespace kov::camera {

namespace {

constexpr char kScenePrefix[] = "scene:";
constexpr char kTurnsPrefix[] = "turns:";
constexpr char kPush[] = "push:";

struct Builtin {
    SceneInfo info;
    std::function<std::unique_ptr<FrameSource>(SourceOptions&)> make;
};

template <typename Scene>
Builtin builtin() {
    return {Scene::info(), [](SourceOptions& options) { return std::make_unique<Scene>(options); }};
}

const std::vector<Builtin>& builtins() {
    static const std::vector<Builtin> kBuiltins = {builtin<Landscape>(), builtin<Crossing>(), builtin<Portrait>(),
                                                   builtin<AddMe>(), builtin<StillLife>()};
    return kBuiltins;
}

std::unique_ptr<FrameSource> openScene(const std::string& name, SourceOptions& options, std::string* error) {
    for (const Builtin& scene : builtins()) {
        if (scene.info.name != name)
            continue;
        std::unique_ptr<FrameSource> source = scene.make(options);
        if (options.finish())
            return source;
        *error = "scene " + name + ": " + options.error();
        return nullptr;
    }
    std::vector<std::string> names;
    for (const SceneInfo& scene : builtinScenes())
        names.push_back(scene.name);
    *error = "unknown scene \"" + name + "\"; the built-in scenes are " + joinNames(names);
    return nullptr;
}

/// Several sources, each until a picture was taken.
class InTurn : public FrameSource {
public:
    explicit InTurn(std::vector<std::unique_ptr<FrameSource>> sources) : mSources(std::move(sources)) {}

    cv::Mat frame(double seconds, cv::Size size) override {
        FrameSource& source = *mSources[mTurn];
        cv::Mat picture = source.frame(seconds, size);
        mError = source.error();
        return picture;
    }
    void pictureTaken() override {
        mSources[mTurn]->pictureTaken();
        mTurn = (mTurn + 1) % mSources.size();
    }

private:
    const std::vector<std::unique_ptr<FrameSource>> mSources;
    size_t mTurn = 0;
};

std::unique_ptr<FrameSource> openInTurn(const std::string& list, std::string* error) {
    std::vector<std::unique_ptr<FrameSource>> sources;
    for (size_t begin = 0; begin <= list.size();) {
        const size_t end = std::min(list.find('|', begin), list.size());
        sources.push_back(openSource(list.substr(begin, end - begin), error));
        if (!sources.back())
            return nullptr;
        begin = end + 1;
    }
    return std::make_unique<InTurn>(std::move(sources));
}

}  // namespace

const std::vector<SceneInfo>& builtinScenes() {
    static const std::vector<SceneInfo> kInfos = [] {
        std::vector<SceneInfo> infos;
        for (const Builtin& scene : builtins())
            infos.push_back(scene.info);
        return infos;
    }();
    return kInfos;
}

std::unique_ptr<FrameSource> openSource(const std::string& text, std::string* error) {
    if (text.starts_with(kTurnsPrefix))
        return openInTurn(text.substr(sizeof kTurnsPrefix - 1), error);
    if (text == kPush)
        return std::make_unique<PushSource>();
    const size_t mark = text.find('?');
    const std::string name = text.substr(0, mark);
    SourceOptions options(mark == std::string::npos ? "" : text.substr(mark + 1));
    if (name.empty())
        return openScene(builtinScenes().front().name, options, error);
    if (name.starts_with(kScenePrefix))
        return openScene(name.substr(sizeof kScenePrefix - 1), options, error);
    return openFile(name, options, error);
}

std::string checkSource(const std::string& text) {
    std::string error;
    openSource(text, &error);
    return error;
}

}  // namespace kov::camera
