// The model once more, under a runtime that offers no runs of primitives: this program gives them the address null.
#include "model_test.cpp"
