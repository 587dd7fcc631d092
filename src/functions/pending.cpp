// The stand-in handler of the rows whose family is still to be written. Unlike the rows that will
// never have an implementation (which give FAUX), these give #N/A, so that a formula depending on
// one cannot be mistaken for a finished result.
#include "functions/handlers.h"

void PendingFunction(Value*, Value* result, const EvalContext*) {
  *result = ErrorValue(ErrNA);
}
