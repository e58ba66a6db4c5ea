# Bayer benchmark: executable bench_bayer, with OpenCV's imgproc as the rival when found.
if(TARGET bench_bayer)
  vek_bench_use_opencv(bench_bayer)
endif()
