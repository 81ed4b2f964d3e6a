#pragma once

namespace OstrandService {

/// Scene file of the screenshot run, in X3D 3.0 (ISO/IEC 19776-1): the viewer renders one frame of
/// the inlined model into "fettle_screenshot.jpg" and ends. "$I$" stands for the model's file name.
extern const char* const screenshotScene;

} // namespace OstrandService
