/* vek.h — the public C interface of the vek imaging library.
 *
 * Every function returns a 32-bit status unless its comment says otherwise:
 * 0 is success, 1..0xFFFF an ordinary result (a handle, a size, a value) and
 * anything above 0xFFFF an error code (class in the high 16 bits).
 * Images are named by small integer handles (1..65535).
 */
#ifndef VEK_H
#define VEK_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#if defined(_WIN32) && defined(VEK_BUILDING_SHARED)
#define VEK_API __declspec(dllexport)
#elif defined(_WIN32) && defined(VEK_USING_SHARED)
#define VEK_API __declspec(dllimport)
#elif defined(__GNUC__)
#define VEK_API __attribute__((visibility("default")))
#else
#define VEK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================
 * Library core: errors, handles, parameters, strips, utilities
 * ==================================================================== */

#define VEK_OK 0u
#define VEK_VERSION_WORD 0x00040607u

/* Error classes (high 16 bits of an error code). */
#define VEK_ERROR_OTHER_LIBRARY 0x10010000u
#define VEK_ERROR_INTERNAL 0x10020000u
#define VEK_ERROR_BAD_PARAMETER 0x10030000u
#define VEK_ERROR_BAD_HANDLE 0x10040000u
#define VEK_ERROR_CORRUPT_IMAGE 0x10050000u
#define VEK_ERROR_MEMORY 0x10060000u
#define VEK_ERROR_NOT_SUPPORTED 0x10070000u
#define VEK_ERROR_OUT_OF_HANDLES 0x10080000u
#define VEK_ERROR_OPEN_FAILED 0x10090000u
#define VEK_ERROR_CLOSE_FAILED 0x100A0000u
#define VEK_ERROR_BAD_STATE 0x100B0000u
#define VEK_ERROR_UNEXPECTED 0x100C0000u
#define VEK_ERROR_SYSTEM_CALL 0x100D0000u

/* True when a status is an error code. */
#define VEK_IS_ERROR(status) ((uint32_t)(status) > 0xFFFFu)

/* Special handles accepted by the destroy operations. */
#define VEK_ALL_IMAGES 0x10001u
#define VEK_LIBRARY_TABLES 0x10002u

/* Pixel formats (parameter VEK_PARAM_FORMAT). */
#define VEK_FORMAT_NONE 0
#define VEK_Y1 1
#define VEK_Y8 2
#define VEK_PALETTED 3
#define VEK_RGB8 4
#define VEK_RGB15 5
#define VEK_RGB16 6
#define VEK_RGB24 7
#define VEK_BGR24 8
#define VEK_RGBX32 9
#define VEK_BGRX32 10
#define VEK_XBGR32 11
#define VEK_YUV422 12
#define VEK_CMYK32 13
#define VEK_Y16 14
#define VEK_XRGB32 15
#define VEK_RGGB32 16
#define VEK_FORMAT_17 17
#define VEK_YUV411 106
#define VEK_HSI 108

/* Image parameter identifiers. */
#define VEK_PARAM_FORMAT 10
#define VEK_PARAM_WIDTH 11
#define VEK_PARAM_HEIGHT 12
#define VEK_PARAM_DEPTH 13
#define VEK_PARAM_STRIP_LINES 14
#define VEK_PARAM_BYTES_PER_LINE 15
#define VEK_PARAM_BYTES_PER_STRIP 16
#define VEK_PARAM_DATA_WIDTH 17
#define VEK_PARAM_18 18
#define VEK_PARAM_19 19
#define VEK_PARAM_CMAP_SIZE 20
#define VEK_PARAM_JPEG_FIELD 21
#define VEK_PARAM_VERSION 22
#define VEK_PARAM_FIELD 23
#define VEK_PARAM_LINE_ALIGN 24
#define VEK_PARAM_COPY_ALIGN 25
#define VEK_PARAM_COMPONENTS 26
#define VEK_PARAM_JPEG_QUALITY 27

/* Image flags. */
#define VEK_FLAG_LOCKED 1u
#define VEK_FLAG_JPEG 2u
#define VEK_FLAG_DIB 4u
#define VEK_FLAG_LUT 16u
#define VEK_FLAG_FIELDS 32u
#define VEK_FLAG_DITHER 128u
#define VEK_FLAG_EXTERNAL 256u
#define VEK_FLAG_STREAM 512u
#define VEK_FLAG_TIFF_LZW 1024u
#define VEK_FLAG_TIFF_PREDICTOR 2048u

/* Pointer kinds for VEK_image_get_ptr / VEK_image_set_ptr. */
#define VEK_PTR_DATA 100
#define VEK_PTR_CMAP 101
#define VEK_PTR_JPEG_DATA 102
#define VEK_PTR_JPEG_DATA2 103
#define VEK_PTR_RECORD 104
#define VEK_PTR_JPEG 105
#define VEK_PTR_JPEG_BLOCK 106

/* Strip modes of every strip producer and transformer. */
#define VEK_STRIP_NEXT 3
#define VEK_STRIP_END 4

/* An installable error handler: (slot, reporting function, code, message). */
typedef uint32_t (*VEK_ErrHandler)(uint32_t slot, const char* function_name, uint32_t code,
                                   const char* message);

/* Capacity of the operand texts of tVEK_Command (the parser stops storing beyond it). */
#define VEK_COMMAND_OPERANDS 16
#define VEK_COMMAND_TEXT 128

/* Command line split by VEK_Util_ParseCommand. */
typedef struct tVEK_Command {
  int32_t argc;
  int32_t options;
  int32_t operands;
  char program[VEK_COMMAND_TEXT];
  char option[3][VEK_COMMAND_TEXT];
  char operand[VEK_COMMAND_OPERANDS][VEK_COMMAND_TEXT];
} tVEK_Command;

/* -- errors -- */
/* Passes a report to the installed handler (when code != 0 and one is installed); returns its result. */
VEK_API uint32_t VEK_ErrProcess(uint32_t slot, const char* function_name, uint32_t code, const char* message);
/* Installs an error handler (NULL switches reporting off); returns 0. */
VEK_API uint32_t VEK_ErrHandlerInstall(VEK_ErrHandler handler);
/* Default handler: writes the report's caption and body to stderr and returns 1 (the OK button's value). */
VEK_API uint32_t VEK_ErrHandlerDefault(uint32_t slot, const char* function_name, uint32_t code, const char* message);

/* -- start-up, handles and the library lock -- */
/* Initialises the library (lock, default error handler, family tables); returns 0. */
VEK_API uint32_t VEK_Init(void);
/* Alias of VEK_Init; returns 0. */
VEK_API uint32_t VEK_InitLibrary(void);
/* Alias of VEK_Init; returns 0. */
VEK_API uint32_t VEK_LibraryInit(void);
/* Alias of VEK_Init; returns 0. */
VEK_API uint32_t VEK_Library_Init(void);
/* Creates an image with default parameters; returns its handle (1..65535) or an error code. */
VEK_API uint32_t VEK_image_create(void);
/* Allocates a 256-entry colour map filled with 0xAAAAAAAA words; returns it or NULL. */
VEK_API void* VEK_image_create_cmap(void);
/* Destroys one image, every image (VEK_ALL_IMAGES) or the shared tables (VEK_LIBRARY_TABLES). */
VEK_API uint32_t VEK_image_destroy(uint32_t handle);
/* Creates the process-wide recursive library lock; returns 0. */
VEK_API uint32_t VEK_CriticalSectionInit(void);
/* Enters the library lock; 0, or VEK_ERROR_SYSTEM_CALL when the lock operation fails. */
VEK_API uint32_t VEK_CriticalSectionBegin(void);
/* Leaves the library lock; 0, or VEK_ERROR_SYSTEM_CALL when this thread does not hold it. */
VEK_API uint32_t VEK_CriticalSectionEnd(void);

/* -- parameters, flags and validation -- */
/* Sets image parameter id (10..27 except 22 and 26). */
VEK_API uint32_t VEK_image_set_parameter(uint32_t handle, uint32_t id, uint32_t value);
/* Returns image parameter id, or an error code (ambiguous for values above 0xFFFF). */
VEK_API uint32_t VEK_image_get_parameter(uint32_t handle, uint32_t id);
/* 1 if any bit of mask is set in the image's flags, else 0; error code for an unknown handle. */
VEK_API uint32_t VEK_image_get_flags(uint32_t handle, uint32_t mask);
/* value 1 sets the mask's bits, anything else clears them; VEK_ALL_IMAGES applies to every image. */
VEK_API uint32_t VEK_image_set_flags(uint32_t handle, uint32_t mask, uint32_t value);
/* Validates format and depth and derives skip, bytes per line and bytes per strip. */
VEK_API uint32_t VEK_image_check(uint32_t handle);
/* Padding bytes at the end of one line (0 when alignment is 0). */
VEK_API uint32_t VEK_image_calc_skip_bytes(uint32_t width, uint32_t depth, uint32_t alignment);
/* ceil(height / lines per strip) cut to 16 bits; 0 when lines per strip is 0. */
VEK_API uint32_t VEK_image_calc_total_strips(uint32_t handle);
/* Unchecked: width of a valid image. */
VEK_API uint32_t VEK_get_width(uint32_t handle);
/* Unchecked: height of a valid image. */
VEK_API uint32_t VEK_get_height(uint32_t handle);
/* Unchecked: depth (bits per pixel) of a valid image. */
VEK_API uint16_t VEK_get_depth(uint32_t handle);
/* Unchecked: bytes per line of a valid image. */
VEK_API uint32_t VEK_get_bytes_per_line(uint32_t handle);
/* Unchecked: lines per strip of a valid image. */
VEK_API uint32_t VEK_get_lines_this_strip(uint32_t handle);

/* -- image data, strips and copying -- */
/* Allocates the strip buffer (kept when the image is locked and has one). */
VEK_API uint32_t VEK_image_malloc_a_strip(uint32_t handle);
/* Releases the strip buffer (unless locked or external) and any JPEG data. */
VEK_API uint32_t VEK_image_free_data(uint32_t handle);
/* Returns the pointer of kind 100..106, or NULL; never reports. */
VEK_API void* VEK_image_get_ptr(uint32_t handle, uint32_t kind);
/* Sets the pointer of kind 100..106. */
VEK_API uint32_t VEK_image_set_ptr(uint32_t handle, uint32_t kind, void* pointer);
/* Allocates n (16-bit) lines of the image's line size; free it with free(); NULL on failure. */
VEK_API void* VEK_malloc_N_lines(uint32_t handle, uint32_t n);
/* Copies the description (and JPEG parameters) of source to destination. */
VEK_API uint32_t VEK_image_copy_parameters(uint32_t source, uint32_t destination);
/* Copies the description of source to destination, without JPEG parameters. */
VEK_API uint32_t VEK_image_copy_parameters_raw(uint32_t source, uint32_t destination);
/* Copies description and current strip of source to destination. */
VEK_API uint32_t VEK_image_copy(uint32_t source, uint32_t destination);
/* Copies the description and hands source's buffer over to destination. */
VEK_API uint32_t VEK_image_move(uint32_t source, uint32_t destination);
/* Stores the input file name (NULL refused; longer than 511 bytes is cut). */
VEK_API uint32_t VEK_image_set_infilename(uint32_t handle, const char* name);
/* Stores the output file name (NULL refused; longer than 511 bytes is cut). */
VEK_API uint32_t VEK_image_set_outfilename(uint32_t handle, const char* name);
/* Address of the input file-name field, or NULL for an unknown handle. */
VEK_API char* VEK_image_get_infilename(uint32_t handle);
/* Address of the output file-name field, or NULL for an unknown handle. */
VEK_API char* VEK_image_get_outfilename(uint32_t handle);
/* Copies source's output file name into destination's (destination first); returns 0. */
VEK_API uint32_t VEK_copy_outfilename(uint32_t destination, uint32_t source);

/* -- byte order and utilities -- */
/* Reads a little-endian 16-bit value from a stream (past the end, EOF bits leak in). */
VEK_API uint32_t VEK_fget_ui16i(FILE* stream);
/* Reads a big-endian 16-bit value from a stream. */
VEK_API uint32_t VEK_fget_ui16m(FILE* stream);
/* Reads a little-endian 32-bit value from a stream. */
VEK_API uint32_t VEK_fget_ui32i(FILE* stream);
/* Reads a big-endian 32-bit value from a stream. */
VEK_API uint32_t VEK_fget_ui32m(FILE* stream);
/* Writes one byte; returns fputc's result. */
VEK_API int VEK_fput_ui8(FILE* stream, uint32_t value);
/* Writes the low 16 bits little-endian; returns the last fputc result. */
VEK_API int VEK_fput_ui16i(FILE* stream, uint32_t value);
/* Writes the low 16 bits big-endian; returns the last fputc result. */
VEK_API int VEK_fput_ui16m(FILE* stream, uint32_t value);
/* Writes 32 bits little-endian; returns the last fputc result. */
VEK_API int VEK_fput_ui32i(FILE* stream, uint32_t value);
/* Writes 32 bits big-endian; returns the last fputc result. */
VEK_API int VEK_fput_ui32m(FILE* stream, uint32_t value);
/* Reads a little-endian 16-bit value at address. */
VEK_API uint16_t VEK_mget_ui16i(const void* address);
/* Reads a big-endian 16-bit value at address. */
VEK_API uint16_t VEK_mget_ui16m(const void* address);
/* Reads a little-endian 32-bit value at address. */
VEK_API uint32_t VEK_mget_ui32i(const void* address);
/* Reads a big-endian 32-bit value at address. */
VEK_API uint32_t VEK_mget_ui32m(const void* address);
/* Stores one byte at address. */
VEK_API void VEK_mput_ui8(void* address, uint32_t value);
/* Stores the low 16 bits little-endian at address. */
VEK_API void VEK_mput_ui16i(void* address, uint32_t value);
/* Stores the low 16 bits big-endian at address. */
VEK_API void VEK_mput_ui16m(void* address, uint32_t value);
/* Stores 32 bits little-endian at address. */
VEK_API void VEK_mput_ui32i(void* address, uint32_t value);
/* Stores 32 bits big-endian at address. */
VEK_API void VEK_mput_ui32m(void* address, uint32_t value);
/* Counting malloc: returns the block or NULL; successful calls and bytes are counted. */
VEK_API void* VEK_DebugMalloc(size_t size);
/* Counting free. */
VEK_API void VEK_DebugFree(void* address);
/* Snapshots and returns the total bytes requested through VEK_DebugMalloc. */
VEK_API size_t VEK_DebugMallocPrint(void);
/* Number of successful VEK_DebugMalloc calls so far. */
VEK_API uint32_t VEK_DebugMallocCount(void);
/* Number of VEK_DebugFree calls so far. */
VEK_API uint32_t VEK_DebugFreeCount(void);
/* Splits argv into options ("-x") and operands; the program-name text is left empty. */
VEK_API uint32_t VEK_Util_ParseCommand(tVEK_Command* record, int argc, char** argv);
/* Strip producer (mode 3 next strip, 4 end) that fills the image with a test pattern. */
VEK_API uint32_t VEK_test_pattern(uint32_t handle, uint32_t mode);
/* Fills the current strip with the test pattern. */
VEK_API uint32_t VEK_test_pattern_1_strip(uint32_t handle);
/* Debug printing is compiled out: does nothing, returns 0. */
VEK_API uint32_t VEK_print_image(uint32_t handle);
/* Debug printing is compiled out: does nothing, returns 0. */
VEK_API uint32_t VEK_print_cmap(uint32_t handle);
/* Debug printing is compiled out: does nothing, returns 0. */
VEK_API uint32_t VEK_print_jpeg_image(uint32_t handle);

/* @@ section files @@ */
/* File-format codes of the read/write dispatch. */
#define VEK_FILE_UNKNOWN 0
#define VEK_FILE_TIFF 3
#define VEK_FILE_JPEG 8
#define VEK_FILE_EPS 9
#define VEK_FILE_BMP 10
#define VEK_FILE_RAW 11

/* Detects the format of a file from its first bytes: 0, 3, 8, 9, 10, or an error code. */
VEK_API uint32_t VEK_image_find_file_format(const char* file_name);
/* Reads the image's input file (format must be 0: detect); mode 3 whole picture, 4 header only. */
VEK_API uint32_t VEK_image_read(uint32_t handle, uint32_t format, uint32_t mode);
/* Writes the image's output file in format 3, 8, 9, 10 or 11; the second argument is ignored. */
VEK_API uint32_t VEK_image_write(uint32_t handle, uint32_t unused, uint32_t format, uint32_t mode);
/* Writes the current strip's pixels without a header (mode 3 strip, 4 end). */
VEK_API uint32_t VEK_write_raw_data_file(uint32_t handle, uint32_t mode);
/* Reads an 8- or 24-bit BMP: mode 3 the picture as one strip, other modes the header only. */
VEK_API uint32_t VEK_read_BMP_file(uint32_t handle, uint32_t mode);
/* Writes the whole picture (Y8, paletted, RGB24, BGR24, BGRX32, YUV422) as a BMP file. */
VEK_API uint32_t VEK_write_BMP_file(uint32_t handle);
/* Writes BMP bytes into buffer and stores their length; NULL buffer: only the length; *size_out != 0 on entry: capacity. */
VEK_API uint32_t VEK_image_write_BMP_buffer(uint32_t handle, void* buffer, uint32_t* size_out);
/* Display-bitmap conversion: not supported on this platform (always VEK_ERROR_NOT_SUPPORTED). */
VEK_API uint32_t VEK_convert_to_DIB_w31(uint32_t source, uint32_t destination, uint32_t argument, uint32_t mode);
/* Writes a big-endian single-strip TIFF (LZW with predictor when flag VEK_FLAG_TIFF_LZW is set). */
VEK_API uint32_t VEK_write_TIFF_file(uint32_t handle, uint32_t mode);
/* Reads a baseline TIFF (either byte order, none/LZW, predictor) as one strip; mode 3 picture, others header. */
VEK_API uint32_t VEK_read_TIFF_file(uint32_t handle, uint32_t mode);
/* Writes an EPS file (Y1, Y8, paletted, RGB24): mode 3 header and data, others header only. */
VEK_API uint32_t VEK_write_EPS_file(uint32_t handle, uint32_t mode);
/* Reads an EPS file written by VEK_write_EPS_file: mode 3 the picture, other modes the header. */
VEK_API uint32_t VEK_read_EPS_file(uint32_t handle, uint32_t mode);
/* Scans text against format ("%d" = signed integer, blank = any white space, else literal); returns the count stored. */
VEK_API uint32_t VEK_sscanf(const char* text, const char* format, int32_t* values, uint32_t max_values);
/* @@ end files @@ */

/* @@ section convert @@ */
/* Pseudo-target of VEK_image_convert: paletted source to VEK_RGB24 or VEK_Y8. */
#define VEK_PALETTED_TO_RGB 105
/* "No image data": a strip worker was given a source without a buffer. */
#define VEK_ERROR_NO_IMAGE_DATA 0x10050011u
/* A conversion-table file whose size does not match the table. */
#define VEK_ERROR_LUT_FILE_SIZE 0x100C0001u
/* Conversion look-up table types. */
#define VEK_LUT_RGB16_TO_PALETTED 200
#define VEK_LUT_Y8_TO_PALETTED 201
#define VEK_LUT_Y16_TO_PALETTED 202
#define VEK_LUT_YUV422_TO_RGB16 203
#define VEK_LUT_YUV422_TO_RGB15 204
#define VEK_LUT_YUV422_TO_PALETTED 205
/* Component selectors of VEK_LUT_get_ptr. */
#define VEK_LUT_GREY 8
#define VEK_LUT_RED 4
#define VEK_LUT_GREEN 2
#define VEK_LUT_BLUE 1

/* -- conversion dispatcher and RGB-family conversions -- */
/* Converts source into destination in the target format (strip mode 3 converts the strip held, 4 ends a sequence). */
VEK_API uint32_t VEK_image_convert(uint32_t source, uint32_t destination, uint32_t target, uint32_t argument, uint32_t mode);
/* 1 for colour formats, 0 for grey ones (a paletted image is grey when its map is). */
VEK_API uint32_t VEK_image_is_colour(uint32_t image);
/* Converts to VEK_BGR24 (stateless: converts whatever strip the source holds). */
VEK_API uint32_t VEK_convert_to_BGR24(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip to VEK_BGR24. */
VEK_API uint32_t VEK_convert_to_BGR24_1_strip(uint32_t source, uint32_t destination);
/* Converts to VEK_BGRX32 (stateless). */
VEK_API uint32_t VEK_convert_to_BGRX32(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip to VEK_BGRX32. */
VEK_API uint32_t VEK_convert_to_BGRX32_1_strip(uint32_t source, uint32_t destination);
/* Converts a paletted image to VEK_CMYK32 (strip sequence). */
VEK_API uint32_t VEK_convert_to_CMYK32(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip to VEK_CMYK32. */
VEK_API uint32_t VEK_convert_to_CMYK32_1_strip(uint32_t source, uint32_t destination);
/* Converts to VEK_RGB15 (strip sequence). */
VEK_API uint32_t VEK_convert_to_RGB15(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip to VEK_RGB15. */
VEK_API uint32_t VEK_convert_to_RGB15_1_strip(uint32_t source, uint32_t destination);
/* Converts to VEK_RGB16 (strip sequence). */
VEK_API uint32_t VEK_convert_to_RGB16(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip to VEK_RGB16. */
VEK_API uint32_t VEK_convert_to_RGB16_1_strip(uint32_t source, uint32_t destination);
/* Converts to VEK_RGB24 (stateless). */
VEK_API uint32_t VEK_convert_to_RGB24(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip to VEK_RGB24. */
VEK_API uint32_t VEK_convert_to_RGB24_1_strip(uint32_t source, uint32_t destination);
/* Converts to VEK_RGBX32 (strip sequence). */
VEK_API uint32_t VEK_convert_to_RGBX32(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip to VEK_RGBX32. */
VEK_API uint32_t VEK_convert_to_RGBX32_1_strip(uint32_t source, uint32_t destination);
/* Converts to VEK_XBGR32 (strip sequence). */
VEK_API uint32_t VEK_convert_to_XBGR32(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip to VEK_XBGR32. */
VEK_API uint32_t VEK_convert_to_XBGR32_1_strip(uint32_t source, uint32_t destination);
/* Converts to VEK_XRGB32 (strip sequence). */
VEK_API uint32_t VEK_convert_to_XRGB32(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip to VEK_XRGB32. */
VEK_API uint32_t VEK_convert_to_XRGB32_1_strip(uint32_t source, uint32_t destination);
/* Converts to VEK_Y16 (stateless; a destination data width of 0 becomes 16). */
VEK_API uint32_t VEK_convert_to_Y16(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip to VEK_Y16. */
VEK_API uint32_t VEK_convert_to_Y16_1_strip(uint32_t source, uint32_t destination);
/* Converts to VEK_Y8 with grey = (77 R + 150 G + 29 B) >> 8 (stateless). */
VEK_API uint32_t VEK_convert_to_Y8(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip to VEK_Y8. */
VEK_API uint32_t VEK_convert_to_Y8_1_strip(uint32_t source, uint32_t destination);

/* -- YUV 4:2:2 -- */
/* Converts RGB-family, grey or paletted images to VEK_YUV422 (even widths only; stateless). */
VEK_API uint32_t VEK_convert_to_YUV422(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip to VEK_YUV422. */
VEK_API uint32_t VEK_convert_to_YUV422_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_BGR24, evaluating the colour equations (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_BGR24(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_BGR24. */
VEK_API uint32_t VEK_YUV422_to_BGR24_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_BGRX32, evaluating the colour equations (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_BGRX32(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_BGRX32. */
VEK_API uint32_t VEK_YUV422_to_BGRX32_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_RGB15, evaluating the colour equations (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_RGB15(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_RGB15. */
VEK_API uint32_t VEK_YUV422_to_RGB15_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_RGB16, evaluating the colour equations (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_RGB16(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_RGB16. */
VEK_API uint32_t VEK_YUV422_to_RGB16_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_RGB24, evaluating the colour equations (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_RGB24(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_RGB24. */
VEK_API uint32_t VEK_YUV422_to_RGB24_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_RGBX32, evaluating the colour equations (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_RGBX32(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_RGBX32. */
VEK_API uint32_t VEK_YUV422_to_RGBX32_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_XBGR32, evaluating the colour equations (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_XBGR32(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_XBGR32. */
VEK_API uint32_t VEK_YUV422_to_XBGR32_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_XRGB32, evaluating the colour equations (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_XRGB32(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_XRGB32. */
VEK_API uint32_t VEK_YUV422_to_XRGB32_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to hue/saturation/intensity (VEK_HSI; strip sequence). */
VEK_API uint32_t VEK_YUV422_to_HSI(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_HSI. */
VEK_API uint32_t VEK_YUV422_to_HSI_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_Y8: copies the luma bytes (stateless). */
VEK_API uint32_t VEK_YUV422_to_Y8(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_Y8. */
VEK_API uint32_t VEK_YUV422_to_Y8_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_Y16: luma << 8 (stateless). */
VEK_API uint32_t VEK_YUV422_to_Y16(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_Y16. */
VEK_API uint32_t VEK_YUV422_to_Y16_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_BGR24 through the RGB16 table (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_BGR24_LUT(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_BGR24_LUT. */
VEK_API uint32_t VEK_YUV422_to_BGR24_LUT_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_BGRX32 through the RGB16 table (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_BGRX32_LUT(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_BGRX32_LUT. */
VEK_API uint32_t VEK_YUV422_to_BGRX32_LUT_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_RGB15 through the RGB15 table (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_RGB15_LUT(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_RGB15_LUT. */
VEK_API uint32_t VEK_YUV422_to_RGB15_LUT_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_RGB16 through the RGB16 table (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_RGB16_LUT(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_RGB16_LUT. */
VEK_API uint32_t VEK_YUV422_to_RGB16_LUT_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_RGB24 through the RGB16 table (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_RGB24_LUT(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_RGB24_LUT. */
VEK_API uint32_t VEK_YUV422_to_RGB24_LUT_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_RGBX32 through the RGB16 table (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_RGBX32_LUT(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_RGBX32_LUT. */
VEK_API uint32_t VEK_YUV422_to_RGBX32_LUT_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_XBGR32 through the RGB16 table (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_XBGR32_LUT(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_XBGR32_LUT. */
VEK_API uint32_t VEK_YUV422_to_XBGR32_LUT_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to VEK_XRGB32 through the RGB16 table (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_XRGB32_LUT(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_XRGB32_LUT. */
VEK_API uint32_t VEK_YUV422_to_XRGB32_LUT_1_strip(uint32_t source, uint32_t destination);
/* Builds (or refills) the process-wide YUV-to-RGB15 table. */
VEK_API uint32_t VEK_generate_YUV422_to_RGB15_LUT(void);
/* Builds (or refills) the process-wide YUV-to-RGB16 table. */
VEK_API uint32_t VEK_generate_YUV422_to_RGB16_LUT(void);

/* -- colour maps and paletted images -- */
/* Allocates a colour-map information record (histogram of 4096 bins), or NULL. */
VEK_API void* VEK_cmap_create_info(void);
/* Frees the image's colour-map information record (0 also when there is none). */
VEK_API uint32_t VEK_cmap_destroy_info(uint32_t image);
/* Copies colour count, entries and information record from source to destination. */
VEK_API uint32_t VEK_cmap_copy(uint32_t source, uint32_t destination);
/* Entry index as (R << 16) | (G << 8) | B; an index up to the colour count is accepted. */
VEK_API uint32_t VEK_cmap_get_RGB_colour(uint32_t image, uint32_t index);
/* Sets entry index to (R, G, B); an index up to the colour count is accepted. */
VEK_API uint32_t VEK_cmap_set_RGB_colour(uint32_t image, uint32_t index, uint32_t r, uint32_t g, uint32_t b);
/* Sets entry index to one of the 16 named colours (0..15). */
VEK_API uint32_t VEK_cmap_set_colour(uint32_t image, uint32_t index, uint32_t colour);
/* Fills the map: 0 black, 1 the 16 named colours, 2 grey ramp, 3 the 3-3-2 colour cube. */
VEK_API uint32_t VEK_cmap_set_type(uint32_t image, uint32_t type);
/* 1 when every valid entry is grey (or the count is 0), else 0. */
VEK_API uint32_t VEK_cmap_is_grayscale(uint32_t image);
/* Index of the entry nearest to (R, G, B) (squared distance; lowest index wins ties). */
VEK_API uint32_t VEK_cmap_find_closest_colour(uint32_t image, uint32_t r, uint32_t g, uint32_t b);
/* Occurrence count at position bin of the information record's histogram. */
VEK_API uint32_t VEK_cmap_get_occurrences(uint32_t image, uint32_t bin);
/* Histogram of an RGB24/Y8/Y16 image and palette choice for `colours` entries (strip sequence). */
VEK_API uint32_t VEK_cmap_generate(uint32_t image, uint32_t colours, uint32_t mode);
/* Adds the current strip to the histogram. */
VEK_API uint32_t VEK_cmap_generate_1_strip(uint32_t image);
/* RGB24 or Y8 to paletted through the generated palette (strip sequence). */
VEK_API uint32_t VEK_convert_to_paletted(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_convert_to_paletted. */
VEK_API uint32_t VEK_convert_to_paletted_1_strip(uint32_t source, uint32_t destination);
/* RGB24 or Y8 to 3-3-2 VEK_RGB8 (strip sequence). */
VEK_API uint32_t VEK_convert_to_RGB8(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_convert_to_RGB8. */
VEK_API uint32_t VEK_convert_to_RGB8_1_strip(uint32_t source, uint32_t destination);
/* RGB24 to paletted 3-3-2 with error carries along each line (strip sequence). */
VEK_API uint32_t VEK_convert_to_RGB8_dither(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_convert_to_RGB8_dither. */
VEK_API uint32_t VEK_convert_to_RGB8_dither_1_strip(uint32_t source, uint32_t destination);
/* Paletted to VEK_Y8 (grey map) or VEK_RGB24 (strip sequence). */
VEK_API uint32_t VEK_paletted_to_RGB24_or_Y8(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_paletted_to_RGB24_or_Y8. */
VEK_API uint32_t VEK_paletted_to_RGB24_or_Y8_1_strip(uint32_t source, uint32_t destination);

/* -- conversion look-up tables -- */
/* RGB16/Y8/Y16 to paletted through a table built from the source's colour map (strip sequence). */
VEK_API uint32_t VEK_convert_to_paletted_LUT(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_convert_to_paletted_LUT. */
VEK_API uint32_t VEK_convert_to_paletted_LUT_1_strip(uint32_t source, uint32_t destination);
/* VEK_YUV422 to paletted through the YUV-to-paletted table (strip sequence). */
VEK_API uint32_t VEK_YUV422_to_paletted_LUT(uint32_t source, uint32_t destination, uint32_t mode);
/* Converts the current strip of VEK_YUV422_to_paletted_LUT. */
VEK_API uint32_t VEK_YUV422_to_paletted_LUT_1_strip(uint32_t source, uint32_t destination);
/* Builds the RGB16-to-paletted table from the image's colour map. */
VEK_API uint32_t VEK_generate_RGB16_to_paletted_LUT(uint32_t image);
/* Builds the Y8-to-paletted table from the image's colour map. */
VEK_API uint32_t VEK_generate_Y8_to_paletted_LUT(uint32_t image);
/* Builds the Y16-to-paletted table from the image's colour map and data width (9..16). */
VEK_API uint32_t VEK_generate_Y16_to_paletted_LUT(uint32_t image);
/* Builds the YUV-to-paletted table from the image's colour map. */
VEK_API uint32_t VEK_generate_YUV422_to_paletted_LUT(uint32_t image);
/* Frees the RGB16-to-paletted table. */
VEK_API uint32_t VEK_destroy_RGB16_to_paletted_LUT(void);
/* Frees the Y8-to-paletted table. */
VEK_API uint32_t VEK_destroy_Y8_to_paletted_LUT(void);
/* Frees the Y16-to-paletted table. */
VEK_API uint32_t VEK_destroy_Y16_to_paletted_LUT(void);
/* Frees the YUV-to-RGB16 table. */
VEK_API uint32_t VEK_destroy_YUV422_to_RGB16_LUT(void);
/* Frees the YUV-to-RGB15 table. */
VEK_API uint32_t VEK_destroy_YUV422_to_RGB15_LUT(void);
/* Frees the YUV-to-paletted table. */
VEK_API uint32_t VEK_destroy_YUV422_to_paletted_LUT(void);
/* Builds the table of a type code (200..205). */
VEK_API uint32_t VEK_image_conv_LUT_generate(uint32_t image, uint32_t type);
/* Frees the table of a type code (200..205). */
VEK_API uint32_t VEK_image_conv_LUT_destroy(uint32_t type);
/* Writes the table's bytes (16-bit entries little-endian) to a file. */
VEK_API uint32_t VEK_image_conv_LUT_save(uint32_t image, uint32_t type, const char* file_name);
/* Reads a table from a file holding exactly its bytes. */
VEK_API uint32_t VEK_image_conv_LUT_load(uint32_t image, uint32_t type, const char* file_name);

/* -- intensity look-up tables -- */
/* Creates an identity table of `elements` entries of 1 or 2 bytes; returns its handle (1..15). */
VEK_API uint32_t VEK_LUT_create(uint32_t elements, uint32_t element_size);
/* Shapes the table by brightness, contrast, gamma and colour gains (percent; 100 = neutral). */
VEK_API uint32_t VEK_LUT_generate(uint32_t handle, int32_t brightness, int32_t contrast, int32_t gamma, int32_t red_gain, int32_t green_gain, int32_t blue_gain);
/* Address of the grey (8), red (4), green (2) or blue (1) array; NULL otherwise. */
VEK_API void* VEK_LUT_get_ptr(uint32_t handle, uint32_t component);
/* Maps source through the table into destination. */
VEK_API uint32_t VEK_LUT_apply(uint32_t source, uint32_t destination, uint32_t handle);
/* Destroys a table, or every table with VEK_ALL_IMAGES. */
VEK_API uint32_t VEK_LUT_destroy(uint32_t handle);
/* VEK_LUT_apply with a uniform status result. */
VEK_API uint32_t VEK_IP_LUT_Apply(uint32_t source, uint32_t destination, uint32_t handle);
/* Stores VEK_LUT_create's result through handle; returns 0. */
VEK_API uint32_t VEK_LUT_Create(uint32_t* handle, uint32_t elements, uint32_t element_size);
/* Stores VEK_LUT_get_ptr's result through pointer; returns 0. */
VEK_API uint32_t VEK_LUT_ParameterPtrGet(uint32_t handle, uint32_t component, void** pointer);
/* @@ end convert @@ */

/* @@ section bayer @@ */
/* Decoding schemes (VEK_BAYER_HALF_SIZE only in VEK_IP_Bayer_Convert_to_BGRX32). */
#define VEK_BAYER_REPLICATE 1
#define VEK_BAYER_BILINEAR 2
#define VEK_BAYER_MEDIAN 3
#define VEK_BAYER_HALF_SIZE 4
/* Pixel colour (phase): the filter colours of the first two pixels of lines 0 and 1. */
#define VEK_BAYER_RGGB 1
#define VEK_BAYER_GRBG 2
#define VEK_BAYER_GBRG 3
#define VEK_BAYER_BGGR 4

/* Demosaics a whole RGGB32/Y8 mosaic into a VEK_BGRX32 image of the same size (scheme 1..3, pixel colour 1..4). */
VEK_API uint32_t VEK_BAY_RGGB32_to_BGRX32(uint32_t source, uint32_t destination, uint32_t scheme, uint32_t pixel_colour, uint32_t strip_mode);
/* Demosaics a whole RGGB32/Y8 mosaic into a VEK_RGB16 image of the same size. */
VEK_API uint32_t VEK_BAY_RGGB32_to_RGB16(uint32_t source, uint32_t destination, uint32_t scheme, uint32_t pixel_colour, uint32_t strip_mode);
/* Scales each mosaic sample by its reference-phase gain (1/128 units, low byte), saturating at 255. */
VEK_API uint32_t VEK_BAY_ColorBalance(uint32_t source, uint32_t destination, uint32_t red_gain, uint32_t green_gain, uint32_t blue_gain);
/* Makes a reference-phase RGGB32 mosaic from a VEK_RGB24 image, strip by strip. */
VEK_API uint32_t VEK_BAY_RGB24_to_RGGB32(uint32_t source, uint32_t destination, uint32_t strip_mode);
/* False-colour view: each sample into its reference-phase channel of a VEK_RGB24 pixel; offset shifts the source start. */
VEK_API uint32_t VEK_BAY_RGGB32_map_to_RGB24(uint32_t source, uint32_t destination, uint32_t offset, uint32_t strip_mode);
/* Grey view: copies the mosaic's samples into a VEK_Y8 image. */
VEK_API uint32_t VEK_BAY_RGGB32_map_to_Y8(uint32_t source, uint32_t destination, uint32_t strip_mode);
/* Schemes 1..3 demosaic, 4 half size, others do nothing; then the optional 3x3 colour matrix (nine floats, or NULL). */
VEK_API uint32_t VEK_IP_Bayer_Convert_to_BGRX32(uint32_t source, uint32_t destination, uint32_t scheme, const float* matrix, uint32_t offset, uint32_t pixel_colour);
/* One VEK_BGRX32 pixel per 2x2 cell (half width, half height) of an even-sized mosaic. */
VEK_API uint32_t VEK_IP_Bayer_Convert_to_BGRX32_Sub2(uint32_t source, uint32_t destination, uint32_t pixel_colour);
/* False-colour view of a whole mosaic (VEK_BAY_RGGB32_map_to_RGB24 with strip mode 3). */
VEK_API uint32_t VEK_IP_Bayer_Map_to_RGB24(uint32_t source, uint32_t destination, uint32_t offset);
/* Splits an even-sized mosaic into red, green and blue VEK_RGB24 planes of the same size. */
VEK_API uint32_t VEK_IP_Bayer_Convert_to_ThreePlanes(uint32_t source, uint32_t plane1, uint32_t plane2, uint32_t plane3, uint32_t pixel_colour);
/* @@ end bayer @@ */

/* @@ section jpeg @@ */
/* JPEG descriptor carried by a JPEG image (pointer kind VEK_PTR_JPEG); fields in declaration order. */
typedef struct Tjpeg {
  FILE* file;                      /* stream being read or written, or NULL */
  uint32_t header_length;          /* bytes from SOI to the first entropy-coded byte */
  uint8_t* data;                   /* compressed-data buffer */
  uint8_t* current;                /* read/write position inside data */
  uint32_t data_length;            /* valid bytes in data */
  uint32_t quality_factor;         /* F, 1..400 (16 = Annex K tables, default 32) */
  uint8_t comment[32];             /* first 32 bytes of the last COM segment */
  uint16_t frame_header_length;    /* Lf */
  uint16_t precision;              /* P, always 8 */
  uint16_t h_sampling[3];          /* H of components 1..3 */
  uint16_t v_sampling[3];          /* V of components 1..3 */
  uint16_t q_segment_length;       /* Lq */
  uint16_t q_selector[3];          /* Tq of components 1..3 */
  uint16_t q_table_count;          /* quantisation tables present */
  uint8_t q_table[4][64];          /* steps in zigzag order, per table slot */
  uint32_t q_reciprocal[2][64];    /* (q/2 + 65536) / q, zigzag order */
  uint16_t h_segment_length;       /* DHT length less 2 */
  uint16_t h_table_id[5];          /* Tc/Th of DC lum, DC chr, AC lum, AC chr; 255 = absent */
  uint8_t h_bits[4][16];           /* BITS lists */
  uint8_t h_values[4][256];        /* HUFFVAL lists */
  uint16_t scan_header_length;     /* Ls */
  uint16_t scan_components;        /* Ns */
  uint8_t spectral_start;          /* Ss */
  uint8_t spectral_end;            /* Se */
  uint8_t approximation;           /* Ah/Al */
} Tjpeg;

/* Identifiers of VEK_JPEG_get_parameter. */
#define VEK_JPEG_COMPONENTS 600
#define VEK_JPEG_HEADER_LENGTH 601
#define VEK_JPEG_NUM_Q_TABLES 602

/* -- descriptor and tables -- */
/* Creates an image carrying a fresh JPEG descriptor (quality 32); returns the handle or an error. */
VEK_API uint32_t VEK_JPEG_image_create(void);
/* Frees the descriptor and its data buffer; succeeds when the image has none. */
VEK_API uint32_t VEK_JPEG_destroy_Tjpeg(uint32_t handle);
/* Allocates the compressed-data buffer (file length, or pitch x strip + 10000; at least 4200). */
VEK_API uint32_t VEK_JPEG_malloc_data(uint32_t handle);
/* Allocates exactly n bytes for the compressed-data buffer. */
VEK_API uint32_t VEK_JPEG_malloc_N_bytes_data(uint32_t handle, uint32_t n);
/* Frees the compressed-data buffer unless it is locked or external. */
VEK_API uint32_t VEK_JPEG_free_data(uint32_t handle);
/* Copies src's descriptor over dst's, keeping dst's file, data and current pointers. */
VEK_API uint32_t VEK_JPEG_copy_parameters(uint32_t src, uint32_t dst);
/* Prepares dst's descriptor and parameters for compressing the raster image src. */
VEK_API uint32_t VEK_JPEG_set_image(uint32_t src, uint32_t dst);
/* Builds the JPEG image dst from the JPEG image src (strip copy, mode 3 or 4). */
VEK_API uint32_t VEK_JPEG_build_image(uint32_t src, uint32_t dst, uint32_t mode);
/* Returns the value of parameter id (600..602) itself, or an error code. */
VEK_API uint32_t VEK_JPEG_get_parameter(uint32_t handle, uint32_t id);
/* Stores the quality factor F (1..400; larger is finer). */
VEK_API uint32_t VEK_JPEG_set_Quality_factor(uint32_t handle, uint32_t factor);
/* Stores F = trunc(50 / q x 16) for a quantisation factor q (2..800; larger is coarser). */
VEK_API uint32_t VEK_JPEG_set_Quantization_factor(uint32_t handle, uint32_t q);
/* Derives both quantisation tables and their reciprocals from the stored F. */
VEK_API uint32_t VEK_JPEG_make_Q_tables(uint32_t handle);
/* Sets both quantisation tables and reciprocals to 0. */
VEK_API uint32_t VEK_JPEG_Q_table_to_zero(uint32_t handle);
/* Loads the four standard Huffman tables into the descriptor. */
VEK_API uint32_t VEK_JPEG_set_default_H_tables(uint32_t handle);
/* Builds the process-wide Huffman code tables from the descriptor's tables. */
VEK_API uint32_t VEK_JPEG_generate_H_codetable_LUTs(uint32_t handle);
/* Builds the process-wide Huffman decode tables from the code tables. */
VEK_API uint32_t VEK_JPEG_generate_Huffman_decode_tables(void);
/* Diagnostic: checks that the image is a JPEG image; prints nothing. */
VEK_API uint32_t VEK_JPEG_Q_table_print(uint32_t handle);
/* Diagnostic: checks that the image is a JPEG image; prints nothing. */
VEK_API uint32_t VEK_print_Huffman_tables(uint32_t handle);

/* -- encoder -- */
/* Compresses the whole raster image src into the JPEG image dst (entropy data plus EOI). */
VEK_API uint32_t VEK_JPEG_compress(uint32_t src, uint32_t dst);
/* Copies src into padded, extending lines and rows to whole MCUs. */
VEK_API uint32_t VEK_pad_to_MCU_1_strip(uint32_t src, uint32_t padded);
/* Codes the MCU-aligned image src (Y8, YUV422, BGR24, BGRX32) into dst's data buffer. */
VEK_API uint32_t VEK_JPEG_compress_1_strip(uint32_t src, uint32_t dst);

/* -- decoder -- */
/* Decodes the JPEG image src into the raster image dst (its format picks the layout).
 * 2x2-sampled streams (VEK_YUV411, the camera 4:2:0) get each output line's chroma as a
 * 3:1 distance-weighted blend of the two nearest chroma lines, not plain line repetition. */
VEK_API uint32_t VEK_JPEG_decompress(uint32_t src, uint32_t dst);
/* Decodes src at its MCU-padded size into dst as Y8 or YUV422. */
VEK_API uint32_t VEK_JPEG_decompress_1_strip(uint32_t src, uint32_t dst);
/* Zeroes the chrominance quantisation table so decoding yields U = V = 128. */
VEK_API uint32_t VEK_JPEG_ConvertToMonoYUV(uint32_t handle);

/* -- files and buffers -- */
/* Writes the image as a JFIF file to its output file name. */
VEK_API uint32_t VEK_JPEG_file_write(uint32_t handle);
/* Writes the stream into buffer (size bytes); fails when it does not fit; *length_out = bytes written. */
VEK_API uint32_t VEK_JPEG_buffer_write(uint32_t handle, uint8_t* buffer, uint32_t size, uint32_t* length_out);
/* Reads the input file's headers and entropy-coded data into the descriptor. */
VEK_API uint32_t VEK_JPEG_file_read(uint32_t handle);
/* Opens the input file, parses headers up to SOS and leaves the file open. */
VEK_API uint32_t VEK_JPEG_file_open(uint32_t handle);
/* Closes the descriptor's open file. */
VEK_API uint32_t VEK_JPEG_file_close(uint32_t handle);
/* Parses a stream held in memory and copies its data into a buffer of size bytes. */
VEK_API uint32_t VEK_JPEG_buffer_read(uint32_t handle, const uint8_t* buffer, uint32_t size);
/* The descriptor's open stream, or NULL. */
VEK_API FILE* VEK_JPEG_get_file_ptr(uint32_t handle);
/* Stores a caller's stream in the descriptor. */
VEK_API uint32_t VEK_JPEG_set_file_ptr(uint32_t handle, FILE* stream);

/* -- sequences -- */
/* src = 0: makes dst's buffer its own copy; else appends src's frame to dst (RST0 between frames). */
VEK_API uint32_t VEK_JPEG_sequence_build(uint32_t src, uint32_t dst);
/* Counts the frames of the sequence in the image's open file into its strip count. */
VEK_API uint32_t VEK_JPEG_sequence_calc_length(uint32_t handle);
/* Positions the image on frame n (1-based). */
VEK_API uint32_t VEK_JPEG_sequence_set_start_frame(uint32_t handle, uint32_t n);
/* Copies frame n of src into dst as a one-frame JPEG image. */
VEK_API uint32_t VEK_JPEG_sequence_extract_frame(uint32_t src, uint32_t dst, uint32_t n);
/* @@ end jpeg @@ */

/* @@ section process @@ */
/* -- geometry -- */
/* A region is four uint32_t values: x, y, width, height (x and y 0-based). */
/* Zoom coefficient tables: uint16_t[VEK_ZOOM_TABLE_ENTRIES] each, caller-owned:
 * first-sample Q15 weights, second-sample weights, advance flags, each VEK_ZOOM_MAX long. */
#define VEK_ZOOM_MAX 32768u
#define VEK_ZOOM_TABLE_ENTRIES (3u * VEK_ZOOM_MAX)

/* Output becomes the region of the input (mode 3 copies pixels, other modes set parameters only). */
VEK_API uint32_t VEK_IP_crop(uint32_t input, uint32_t output, const uint32_t* region, uint32_t mode);
/* VEK_IP_crop with mode 3. */
VEK_API uint32_t VEK_IP_Crop_Image(uint32_t input, uint32_t output, const uint32_t* region);
/* Copies the inserted image into the target in place, top-left pixel at 1-based (x, y). */
VEK_API uint32_t VEK_IP_image_insert(uint32_t target, uint32_t inserted, uint32_t x, uint32_t y);
/* Strip transformer: packs the YUV 4:2:2 pairs inside a circle into a one-line output. */
VEK_API uint32_t VEK_IP_extract_region(uint32_t input, uint32_t output, uint32_t unused, uint32_t centre_x,
                                       uint32_t centre_y, uint32_t radius, uint32_t mode);
/* Output is a copy of the input with the region mirrored left-right. */
VEK_API uint32_t VEK_IP_mirror(uint32_t input, uint32_t output, const uint32_t* region, uint32_t mode);
/* Strip transformer: output is the input mirrored left-right. */
VEK_API uint32_t VEK_IP_mirror_image(uint32_t input, uint32_t output, uint32_t mode);
/* Rotates a whole image clockwise by 0, 90, 180 or 270 degrees. */
VEK_API uint32_t VEK_IP_rotate_image(uint32_t input, uint32_t output, uint32_t angle);
/* Strip transformer: linear-interpolation resize of Y8 or RGB24 to new_width x new_height. */
VEK_API uint32_t VEK_IP_scale(uint32_t input, uint32_t output, uint32_t new_width, uint32_t new_height,
                              uint32_t mode);
/* Keeps every factor-th pixel of every factor-th line (output width rounded down to even). */
VEK_API uint32_t VEK_IP_subsample(uint32_t input, uint32_t output, uint32_t factor);
/* VEK_IP_subsample, keeping the output's VEK_FLAG_LOCKED as it was. */
VEK_API uint32_t VEK_IP_Subsample(uint32_t input, uint32_t output, uint32_t factor);
/* Averages factor x factor blocks (truncating), keeping the output's VEK_FLAG_LOCKED. */
VEK_API uint32_t VEK_IP_Subsample_by_Binning(uint32_t input, uint32_t output, uint32_t factor);
/* Strip transformer: enlarges by repeating each pixel factor x factor times. */
VEK_API uint32_t VEK_IP_pixel_rep(uint32_t input, uint32_t output, uint32_t factor, uint32_t mode);
/* Strip transformer: bilinear enlargement of the region to output_width x output_height using the
 * tables (filled by VEK_IP_bilinear_zoom_setup first when they are not ready). */
VEK_API uint32_t VEK_IP_bilinear_zoom(uint32_t input, uint32_t output, const uint32_t* region,
                                      uint32_t output_width, uint32_t output_height, uint16_t* x_table,
                                      uint16_t* y_table, uint32_t mode);
/* Fills the two zoom coefficient tables for enlarging the region to the output size. */
VEK_API uint32_t VEK_IP_bilinear_zoom_setup(const uint32_t* region, uint32_t output_width,
                                            uint32_t output_height, uint16_t* x_table, uint16_t* y_table);
/* @@ end process @@ */

#ifdef __cplusplus
}
#endif

#endif /* VEK_H */
