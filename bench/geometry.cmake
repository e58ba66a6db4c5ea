# Geometry benchmark: executable bench_geometry, with OpenCV's imgproc as the rival when found.
if(TARGET bench_geometry)
  vek_bench_use_opencv(bench_geometry)
endif()
