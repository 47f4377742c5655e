// People in the scenes.

#include "host/camera/scenes/Person.h"

#include <cmath>

namespace kov::camera {

namespace {

constexpr double kTurn = 6.283185307179586;

/// A limb with a lit left side.
void shadedLimb(Canvas& canvas, cv::Point2d from, cv::Point2d to, double fromRadius, double toRadius,
                const Colour& colour) {
    canvas.limb(from, to, fromRadius, toRadius, colour * 0.74);
    const cv::Point2d aside(-0.22 * toRadius, -0.1 * toRadius);
    canvas.limb(from + aside, to + aside, fromRadius * 0.72, toRadius * 0.72, colour);
}

cv::Point2d swing(cv::Point2d from, double length, double angle) {
    return from + length * cv::Point2d(std::sin(angle), std::cos(angle));
}

void drawLeg(Canvas& canvas, cv::Point2d hip, double height, double phase, const Look& look, double light) {
    const double hipAngle = 0.46 * std::sin(kTurn * phase);
    const double knee = 0.12 + 0.62 * std::max(0.0, std::cos(kTurn * phase + 0.35));
    const cv::Point2d middle = swing(hip, 0.245 * height, hipAngle);
    const cv::Point2d ankle = swing(middle, 0.235 * height, hipAngle - knee);
    shadedLimb(canvas, hip, middle, 0.06 * height, 0.046 * height, look.trousers * light);
    shadedLimb(canvas, middle, ankle, 0.045 * height, 0.03 * height, look.trousers * light);
    const double tilt = hipAngle - knee * 0.6;
    canvas.limb(ankle + cv::Point2d(-0.008, 0.012) * height,
                ankle + height * 0.075 * cv::Point2d(std::cos(tilt), -std::sin(tilt)) + cv::Point2d(0, 0.018 * height),
                0.026 * height, 0.018 * height, look.shoes * light);
}

void drawArm(Canvas& canvas, cv::Point2d shoulder, double height, double phase, const Look& look, double light) {
    const double angle = 0.5 * std::sin(kTurn * phase);
    const cv::Point2d elbow = swing(shoulder, 0.16 * height, angle);
    const cv::Point2d hand = swing(elbow, 0.145 * height, angle + 0.4);
    canvas.circle(hand, 0.024 * height, look.skin * light);
    shadedLimb(canvas, shoulder, elbow, 0.038 * height, 0.032 * height, look.top * light);
    shadedLimb(canvas, elbow, swing(elbow, 0.125 * height, angle + 0.4), 0.031 * height, 0.024 * height,
               look.top * light);
}

void drawTorso(Canvas& canvas, cv::Point2d hip, cv::Point2d shoulder, double height, const Look& look, double wide) {
    shadedLimb(canvas, hip, shoulder, 0.072 * wide * height, 0.08 * wide * height, look.top);
    // Folds and a belt.
    for (int i = 1; i < 5; ++i) {
        const cv::Point2d at = hip + (shoulder - hip) * (0.16 * i);
        canvas.line(at + cv::Point2d(0.02 * wide, -0.008) * height, at + cv::Point2d(0.062 * wide, 0.01) * height,
                    0.006 * height, look.top * 0.62);
    }
    canvas.limb(hip + cv::Point2d(-0.066 * wide, 0.02) * height, hip + cv::Point2d(0.066 * wide, 0.02) * height,
                0.014 * height, 0.014 * height, look.shoes * 0.7);
}

}  // namespace

Look Look::mask() {
    const Colour white(255, 255, 255);
    return {white, white, white, white, white, true};
}

double strideLength(double height) {
    return 0.82 * height;
}

void drawWalker(Canvas& canvas, cv::Point2d feet, double height, double stride, const Look& look) {
    const double bounce = 0.012 * height * std::cos(2 * kTurn * stride);
    const cv::Point2d hip = feet - cv::Point2d(0, 0.505 * height + bounce);
    const cv::Point2d shoulder = hip + height * cv::Point2d(0.02, -0.295);
    drawArm(canvas, shoulder, height, stride, look, 0.78);
    drawLeg(canvas, hip, height, stride + 0.5, look, 0.78);
    drawLeg(canvas, hip, height, stride, look, 1);
    drawTorso(canvas, hip, shoulder, height, look, 1);
    drawArm(canvas, shoulder, height, stride + 0.5, look, 1.05);

    const cv::Point2d head = shoulder + height * cv::Point2d(0.012, -0.128);
    shadedLimb(canvas, shoulder + cv::Point2d(0, -0.05) * height, head, 0.036 * height, 0.034 * height, look.skin);
    if (look.longHair)
        shadedLimb(canvas, head + cv::Point2d(-0.035, -0.01) * height, shoulder + cv::Point2d(-0.06, -0.02) * height,
                   0.05 * height, 0.03 * height, look.hair);
    canvas.ellipse(head, {0.056 * height, 0.072 * height}, look.skin * 0.86);
    canvas.ellipse(head + cv::Point2d(0.004, -0.002) * height, {0.048 * height, 0.064 * height}, look.skin);
    canvas.polygon({head + cv::Point2d(0.05, -0.008) * height, head + cv::Point2d(0.072, 0.014) * height,
                    head + cv::Point2d(0.05, 0.02) * height},
                   look.skin * 0.95);
    canvas.ellipse(head + cv::Point2d(-0.012, -0.026) * height, {0.06 * height, 0.056 * height}, look.hair, 0, 150,
                   345);
    canvas.ellipse(head + cv::Point2d(-0.03, -0.006) * height, {0.034 * height, 0.052 * height}, look.hair);
    canvas.circle(head + cv::Point2d(0.034, -0.008) * height, 0.0065 * height, look.hair * 0.4);
    canvas.line(head + cv::Point2d(0.03, 0.038) * height, head + cv::Point2d(0.05, 0.035) * height, 0.006 * height,
                look.skin * 0.6);
}

void drawStander(Canvas& canvas, cv::Point2d feet, double height, const Look& look) {
    const auto at = [&](double x, double y) { return feet + height * cv::Point2d(x, -y); };
    canvas.ellipse(at(0.03, 0), {0.16 * height, 0.02 * height}, rgb(0x4A4A48));
    for (const double side : {-1.0, 1.0}) {
        shadedLimb(canvas, at(0.045 * side, 0.5), at(0.055 * side, 0.26), 0.058 * height, 0.045 * height,
                   look.trousers);
        shadedLimb(canvas, at(0.055 * side, 0.26), at(0.06 * side, 0.04), 0.044 * height, 0.032 * height,
                   look.trousers);
        canvas.limb(at(0.06 * side, 0.02), at(0.085 * side, 0.014), 0.028 * height, 0.022 * height, look.shoes);
    }
    if (look.longHair)
        canvas.limb(at(0, 0.93), at(0, 0.8), 0.075 * height, 0.085 * height, look.hair * 0.8);
    for (const double side : {-1.0, 1.0}) {
        canvas.circle(at(0.16 * side, 0.47), 0.026 * height, look.skin);
        shadedLimb(canvas, at(0.11 * side, 0.785), at(0.145 * side, 0.63), 0.038 * height, 0.032 * height,
                   look.top * 0.92);
        shadedLimb(canvas, at(0.145 * side, 0.63), at(0.158 * side, 0.5), 0.031 * height, 0.025 * height,
                   look.top * 0.92);
    }
    shadedLimb(canvas, at(-0.055, 0.76), at(-0.04, 0.53), 0.066 * height, 0.06 * height, look.top);
    canvas.limb(at(0.055, 0.76), at(0.04, 0.53), 0.066 * height, 0.06 * height, look.top * 0.74);
    canvas.polygon({at(-0.08, 0.81), at(0.07, 0.81), at(0.06, 0.48), at(-0.07, 0.48)}, look.top);
    for (int i = 0; i < 5; ++i)
        canvas.line(at(-0.085, 0.75 - 0.055 * i), at(0.085, 0.745 - 0.055 * i), 0.012 * height,
                    look.top * (i % 2 ? 0.8 : 1.2));
    shadedLimb(canvas, at(0, 0.82), at(0, 0.88), 0.036 * height, 0.034 * height, look.skin * 0.9);
    canvas.ellipse(at(0, 0.93), {0.054 * height, 0.07 * height}, look.skin * 0.85);
    canvas.ellipse(at(-0.004, 0.93), {0.048 * height, 0.065 * height}, look.skin);
    canvas.ellipse(at(0, 0.955), {0.06 * height, 0.052 * height}, look.hair, 0, 178, 362);
    for (const double side : {-1.0, 1.0}) {
        canvas.ellipse(at(0.021 * side, 0.935), {0.012 * height, 0.0075 * height}, rgb(0xFFFFFF));
        canvas.circle(at(0.021 * side, 0.935), 0.0065 * height, look.hair * 0.35);
        canvas.line(at(0.009 * side, 0.952), at(0.034 * side, 0.953), 0.006 * height, look.hair * 0.7);
    }
    canvas.line(at(0.002, 0.93), at(0.006, 0.912), 0.005 * height, look.skin * 0.72);
    canvas.ellipse(at(0, 0.9), {0.02 * height, 0.011 * height}, rgb(0xA03A3A), 0, 0, 180);
}

}  // namespace kov::camera
