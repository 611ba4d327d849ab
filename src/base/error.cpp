#include "base/error.h"

namespace tallowbrook {

Error::~Error() = default;

}  // namespace tallowbrook
