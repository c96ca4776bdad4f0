#include "frontpanelhw/lcd/LcdConfig.h"

namespace frontpanelhw::lcd {

LcdConfig getConfig()
{
    return {/*textAreaWidth=*/200,
            /*textAreaHeight=*/48,
            /*displayWidth=*/240,
            /*displayHeight=*/48,
            /*reg00Bit0=*/false,
            /*reg00Bit1=*/false,
            /*reg80Value=*/100,
            /*reg00Bit3=*/1,
            /*regF0Bit2=*/1,
            /*reg01Bits=*/3};
}

} // namespace frontpanelhw::lcd
