/* Checks of the C boundary written in C; the C++ test runs them and reports their first failure. */
#ifndef ORVAN_TESTS_C_BOUNDARY_CHECKS_H
#define ORVAN_TESTS_C_BOUNDARY_CHECKS_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct VelkCheckState {
  const char* failure; /* the first condition that didn't hold, or NULL */
  int line;
} VelkCheckState;

void velk_c_check_boundary(VelkCheckState* state);

#ifdef __cplusplus
}
#endif

#endif
