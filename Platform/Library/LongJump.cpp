/** @file
  Return to the frame that saved a jump buffer with SetJump.
**/
#include <Library/BaseLib.h>

/**
  Resumes at the SetJump that filled JumpBuffer, which then returns Value
  (never 0).
**/
VOID LongJump (IN BASE_LIBRARY_JUMP_BUFFER *JumpBuffer, IN UINTN Value) {
  std::longjmp (JumpBuffer->Buffer, (int)Value);
}
