/* Text profile files of "[section]" headers and "key=value" lines, read and rewritten whole.
 *
 * Owns nothing and keeps no state: every call names its file, works in buffers of its own on the
 * stack (16 KiB to read, 32 KiB to write) and leaves nothing open.  Never allocates, never logs.
 * Any thread; a file that is written while others use it is the callers' to serialise.
 *
 * The format:
 *  - at most INI_FILE_MAX - 1 bytes; the text ends at the file's end, at the first byte 0xFF or at
 *    the first zero byte;
 *  - a line ends at LF or CR; a header is '[' at the start of a line up to the next ']', which may
 *    lie on a later line; without one it runs to the end of the text and its body is empty;
 *  - a body begins at the first character after ']' that is not white space and ends at the next
 *    line that starts with '[';
 *  - in a body, the key of a line runs up to the first '=' after the line's first character, the
 *    value from there to the line's end, nothing trimmed; ';' at the line's start is a comment;
 *  - names match when the name in the file is a prefix of the wanted one (a line "Dur=5" answers
 *    for "Duration", a header "[]" for every section); the first match in file order wins.
 *
 * A null or empty name, a null buffer, a size below 1 or a file of INI_FILE_MAX bytes or more is a
 * programming error: the process stops with an assertion failure, in every build.
 */
#ifndef LIB_INI_FILE_H
#define LIB_INI_FILE_H

#ifdef __cplusplus
extern "C" {
#endif

#define INI_FILE_MAX (1024 * 16) /* bytes of a buffer that holds a file, terminator included */

/* Reads `file` into `buf` (INI_FILE_MAX bytes), terminated, and its length into `*file_size`.
 * Returns 1, or 0 with `*file_size` 0 when it cannot be opened. */
int load_ini_file(const char* file, char* buf, int* file_size);

/* Finds `key` of `section` in the terminated text `buf`.  The positions are offsets into `buf`, each
 * -1 until found: sec_s first character of the section's name, sec_e start of its body, key_s and
 * key_e first and last character of the key, value_s and value_e first character of the value and
 * the one that ends it.  A section that lacks the key leaves its positions as they are; the last one wins.
 * Returns 1 when the key was found, else 0. */
int parse_file(const char* section, const char* key, const char* buf, int* sec_s, int* sec_e, int* key_s, int* key_e,
               int* value_s, int* value_e);

/* Reads a value into `value` (`size` bytes), cut to size - 1 characters, the rest zeroed.
 * Returns 1, or 0 with a copy of `default_value` in `value`: unterminated when it has `size`
 * characters or more; when it is null `value` stays as it was. */
int read_profile_string(const char* section, const char* key, char* value, int size, const char* default_value,
                        const char* file);

/* The value as a decimal number (0 when it is none, the nearest int when it fits none), or
 * `default_value` when it is missing. */
int read_profile_int(const char* section, const char* key, int default_value, const char* file);

/* Sets a value; a missing file, section or key is added (a key at the top of the last matching
 * section's body).  The file is truncated and rewritten in place.  When a key is added, the text
 * after it passes as a print format: "%%" becomes "%", an integer conversion the length of that
 * text, everything else stays.
 * Returns 1, or 0 when the file cannot be opened, written or closed, or when the new text would not
 * fit INI_FILE_MAX - 1 bytes (the file is then left as it was). */
int write_profile_string(const char* section, const char* key, const char* value, const char* file);

/* 1 for LF and CR, the zero byte, '[' and ']' respectively, else 0. */
int newline(char c);
int end_of_string(char c);
int left_barce(char c);
int isright_brace(char c);

#ifdef __cplusplus
} /* extern "C" */
#endif
#endif
