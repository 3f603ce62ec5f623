#include "common/KzComn_ShieldedCall.h"

// The compiler does not support structured exception handling, but its assembler does: a frame with the C runtime's
// handler and one guarded range (begin, end, 1 for "handle everything", where to continue). The system calls the
// handler only for exceptions that the library does not handle and unwinds the library's frames first.
asm(R"(
        .text
        .globl  KzCommonShieldedCall
        .def    KzCommonShieldedCall
        .scl    2
        .type   32
        .endef
        .seh_proc KzCommonShieldedCall
KzCommonShieldedCall:
        subq    $40, %rsp
        .seh_stackalloc 40
        .seh_endprologue
        movq    %rcx, %rax
        movq    %rdx, %rcx
        movq    %r8, %rdx
        movq    %r9, %r8
.LShieldBegin:
        call    *%rax
        nop
.LShieldEnd:
        movl    %eax, %eax
        addq    $40, %rsp
        ret
.LShieldFault:
        movl    %eax, %eax
        btsq    $32, %rax
        addq    $40, %rsp
        ret
        .seh_handler __C_specific_handler, @except
        .seh_handlerdata
        .long   1
        .rva    .LShieldBegin, .LShieldEnd
        .long   1
        .rva    .LShieldFault
        .text
        .seh_endproc
)");
