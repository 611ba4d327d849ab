#include "answer/model_availability.h"

namespace tallowbrook {

ModelAvailability localModelAvailability() {
  // This build carries no model runtime, so no device is eligible to run a model.
  return ModelAvailability{false, "deviceNotEligible"};
}

}  // namespace tallowbrook
