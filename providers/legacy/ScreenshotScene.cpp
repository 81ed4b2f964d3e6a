#include "providers/legacy/ScreenshotScene.h"

namespace OstrandService {

// clang-format off
const char* const screenshotScene =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE X3D PUBLIC 'ISO//Web3D//DTD X3D 3.0//EN'"
    " 'http://www.web3d.org/specifications/x3d-3.0.dtd'>\n"
    "<X3D xmlns:xsd='http://www.w3.org/2001/XMLSchema-instance' profile='Full' version='3.0'"
    " xsd:noNamespaceSchemaLocation='http://www.web3d.org/specifications/x3d-3.0.xsd'>\n"
    "  <Engine DEF='engine'>\n"
    "    <TimerJob DEF='timer' fixFrameDelta='0.04'/>\n"
    "    <SynchronizeJob DEF='synchronize'/>\n"
    "    <RenderJob DEF='render'>\n"
    "      <WindowGroup>\n"
    "        <Window DEF='cam1' size='512 512' sample='8'>\n"
    "          <Viewarea grabFrames='1' grabFile='fettle_screenshot.jpg'/>\n"
    "        </Window>\n"
    "      </WindowGroup>\n"
    "    </RenderJob>\n"
    "    <ROUTE fromNode='engine' fromField='frameFinished'"
    " toNode='engine' toField='set_doExit'/>\n"
    "  </Engine>\n"
    "  <Scene DEF='scene'>\n"
    "    <Inline url='$I$' />\n"
    "  </Scene>\n"
    "</X3D>\n";
// clang-format on

} // namespace OstrandService
