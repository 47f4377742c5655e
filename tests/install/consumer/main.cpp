// A program outside the tree: takes a picture as a camera service and an application would.
#include <shots/Commands.h>
#include <tools/session/Session.h>

#include <fstream>
#include <future>

struct Saver : kov::cam::Listener {
    explicit Saver(const char* path) : file(path, std::ios::binary) {}
    void onPicture(const kov::cam::Picture& picture) override {
        file.write(reinterpret_cast<const char*>(picture.bytes), static_cast<std::streamsize>(picture.size));
        file.close();
        done.set_value();
    }
    std::ofstream file;
    std::promise<void> done;
};

int main(int, char** arguments) {
    const auto saver = std::make_shared<Saver>(arguments[1]);
    const auto session = kov::cam::Session::open({.source = "scene:still-life", .listeners = {saver}});
    session->selectMode(android::KOV_MODE_CARTOON);
    session->startPreview();
    session->takePicture();
    saver->done.get_future().wait();
}
