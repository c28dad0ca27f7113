# System libraries, all from Debian's -dev packages.
pkg_check_modules(X11 REQUIRED IMPORTED_TARGET x11 xext xfixes xcomposite xdamage xi xrandr xinerama xscrnsaver xtst xcursor)
pkg_check_modules(PULSE REQUIRED IMPORTED_TARGET libpulse)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET libavcodec libavformat libavutil libswscale libswresample)
pkg_check_modules(CAIRO REQUIRED IMPORTED_TARGET cairo pangocairo)
# The still-picture formats; giflib ships no pkg-config file.
pkg_check_modules(IMAGES REQUIRED IMPORTED_TARGET libpng libjpeg libtiff-4)
pkg_check_modules(V4L2 REQUIRED IMPORTED_TARGET libv4l2)
find_package(GIF REQUIRED)
