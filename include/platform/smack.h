// SPDX-License-Identifier: MIT
/* Smack security labels of files. */
#ifndef PLATFORM_SMACK_H
#define PLATFORM_SMACK_H

#ifdef __cplusplus
extern "C" {
#endif

enum smack_label_type { SMACK_LABEL_ACCESS = 0 };

/* Reads a label of a file, of the link itself where the path is a symbolic link. 0 on success:
 * *label is then malloc'ed and belongs to the caller. */
int smack_getlabel(const char* path, char** label, enum smack_label_type type);

#ifdef __cplusplus
}
#endif

#endif
