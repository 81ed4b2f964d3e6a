#include "platform/kestrel/StandardFiles.h"

#include <fcntl.h>
#include <unistd.h>

namespace Kestrel {

void openStandardFiles() {
    // The lowest free number is given out, so that the gaps are filled from below.
    int file = 0;
    do {
        file = ::open("/dev/null", O_RDWR | O_NOCTTY);
    } while (file >= 0 && file <= STDERR_FILENO);
    if (file > STDERR_FILENO)
        ::close(file);
}

} // namespace Kestrel
