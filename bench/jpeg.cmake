# The JPEG benchmark runs libjpeg-turbo's TurboJPEG API beside vek when it is available.
if(TARGET jpeg_bench AND TARGET PkgConfig::TURBOJPEG)
  target_link_libraries(jpeg_bench PRIVATE PkgConfig::TURBOJPEG)
  target_compile_definitions(jpeg_bench PRIVATE VEK_BENCH_TURBOJPEG=1)
endif()
