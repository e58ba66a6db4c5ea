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
/* @@ end files @@ */

/* @@ section convert @@ */
/* @@ end convert @@ */

/* @@ section bayer @@ */
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
