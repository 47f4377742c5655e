// Text in pages.

#include "tools/kovcam/Html.h"

namespace kov::cam {

namespace {

constexpr const char* kStyle = R"css(
:root { color-scheme: light dark; --edge: #8884; --soft: #888; --accent: #2f7fd6; }
* { box-sizing: border-box; }
body { font: 16px/1.5 system-ui, sans-serif; max-width: 1180px; margin: 0 auto; padding: 24px 20px 80px; }
h1 { font-size: 1.7rem; margin: 0 0 4px; } h2 { font-size: 1.25rem; margin: 0; }
header p, .about { color: var(--soft); margin: 0 0 16px; }
nav a { margin-right: 14px; }
section { border-top: 1px solid var(--edge); margin-top: 36px; padding-top: 24px; }
code { font-size: .85rem; background: #8882; padding: 2px 6px; border-radius: 4px; overflow-wrap: anywhere; }
h3 { font-size: .8rem; text-transform: uppercase; letter-spacing: .06em; color: var(--soft); margin: 20px 0 8px; }
.strip { display: grid; grid-template-columns: repeat(auto-fill, minmax(130px, 1fr)); gap: 6px; }
.strip img, .pictures img { width: 100%; height: auto; border-radius: 6px; display: block; background: #8882; }
.pictures { display: grid; grid-template-columns: repeat(auto-fill, minmax(300px, 1fr)); gap: 12px; align-items: start; }
.pictures.four { grid-template-columns: repeat(4, 1fr); gap: 8px; }
.pictures.sheet { grid-template-columns: repeat(3, 1fr); gap: 6px; }
.pictures.one { grid-template-columns: 1fr; } .pictures.one img { max-height: 70vh; width: auto; max-width: 100%; }
figure { margin: 0; } figcaption { font-size: .8rem; color: var(--soft); }
.time { display: grid; grid-template-columns: 210px 1fr; gap: 2px 10px; font-size: .8rem; align-items: center; }
.time span { overflow-wrap: anywhere; }
.time div { position: relative; height: 20px; border-bottom: 1px solid var(--edge); margin-right: 12px; }
.time .ticks { border: 0; color: var(--soft); } .time b { position: absolute; white-space: nowrap; font-weight: normal; transform: translateX(-50%); }
.time div i { position: absolute; top: 10px; transform: translate(-50%, -50%); }
.time i, .legend i { display: inline-block; width: 9px; height: 9px; border-radius: 50%; background: var(--accent); }
.time i.inner, .legend i.inner { width: 5px; height: 9px; border-radius: 1px; background: #7a9a3c; }
.time i.frame, .legend i.frame { width: 3px; height: 9px; border-radius: 1px; background: #888; }
.time i.message, .legend i.message { background: #d6582f; }
.time i.file, .legend i.file { background: none; border: 2px solid #d6582f; width: 12px; height: 12px; }
.legend { font-size: .8rem; color: var(--soft); } .legend i { margin: 0 2px 0 12px; vertical-align: middle; }
@media (max-width: 600px) { .time { grid-template-columns: 1fr; gap: 0; } .pictures.four { grid-template-columns: 1fr 1fr; } }
.failed { color: #c33; }
)css";

}  // namespace

std::string pageHead(const std::string& title) {
    return "<!doctype html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n<meta name=\"viewport\" "
           "content=\"width=device-width\">\n<title>" +
           escaped(title) + "</title>\n<style>" + kStyle + "</style>\n";
}

}  // namespace kov::cam
