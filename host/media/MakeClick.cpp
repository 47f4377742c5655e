// Makes the shutter sound: two short clicks, as a shutter opens and closes, in a WAV file.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <random>
#include <vector>

namespace {

constexpr int kRate = 44100;
constexpr double kSeconds = 0.07;
constexpr double kPi = 3.14159265358979;

/// Adds a click at `begin` seconds: noise and a high tone that die away within milliseconds.
void addClick(std::vector<double>& sound, double begin, double loudness) {
    std::minstd_rand random(5);
    std::uniform_real_distribution<double> noise(-1, 1);
    for (size_t i = static_cast<size_t>(begin * kRate); i < sound.size(); ++i) {
        const double t = static_cast<double>(i) / kRate - begin;
        sound[i] += loudness * (0.7 * noise(random) * std::exp(-t * 700) +
                                0.5 * std::sin(2 * kPi * 2600 * t) * std::exp(-t * 350));
    }
}

void write32(std::ofstream& file, uint32_t value) {
    for (int i = 0; i < 4; ++i)
        file.put(static_cast<char>(value >> (8 * i)));
}

void write16(std::ofstream& file, uint16_t value) {
    file.put(static_cast<char>(value));
    file.put(static_cast<char>(value >> 8));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: kov_make_click FILE\n");
        return 2;
    }
    std::vector<double> sound(static_cast<size_t>(kSeconds * kRate));
    addClick(sound, 0, 0.6);
    addClick(sound, 0.03, 0.8);

    const auto bytes = static_cast<uint32_t>(sound.size() * 2);
    std::ofstream file(argv[1], std::ios::binary);
    file << "RIFF";
    write32(file, 36 + bytes);
    file << "WAVEfmt ";
    write32(file, 16);
    write16(file, 1);  // PCM
    write16(file, 1);  // channels
    write32(file, kRate);
    write32(file, kRate * 2);
    write16(file, 2);
    write16(file, 16);
    file << "data";
    write32(file, bytes);
    for (const double value : sound)
        write16(file, static_cast<uint16_t>(static_cast<int16_t>(std::lround(32767 * std::tanh(value)))));
    file.close();
    return file ? 0 : 1;
}
