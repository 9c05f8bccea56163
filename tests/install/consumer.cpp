// Opens the driver on a simulated phone without any camera module: it must say so, and close.
#include "ois_drv.h"
#include "phone.h"

int main() {
    phone::Phone phone;
    OISDrv* driver = OISDrv::GetInstance(0);
    const bool opened = driver->Init(0, 0) != 0;
    driver->Uninit();
    return opened ? 1 : 0;
}
