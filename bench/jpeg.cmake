# The JPEG benchmark runs libjpeg-turbo's TurboJPEG API beside vek when it is available.
if(TARGET bench_jpeg AND TARGET PkgConfig::TURBOJPEG)
  target_link_libraries(bench_jpeg PRIVATE PkgConfig::TURBOJPEG)
  target_compile_definitions(bench_jpeg PRIVATE VEK_BENCH_TURBOJPEG=1)
endif()
