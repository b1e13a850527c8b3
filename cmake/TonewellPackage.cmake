# What every package says of itself: CPack's, and those that packaging/recipes/ describes.
set(TONEWELL_PACKAGE_NAME tonewell-detection)
set(TONEWELL_PACKAGE_SUMMARY "live sound spectrum of what the computer plays")
set(TONEWELL_PACKAGE_SECTION sound)
set(TONEWELL_PACKAGE_MAINTAINER "The TonewellDetection authors <maintainers@tonewell.example>")
set(TONEWELL_PACKAGE_RELEASE 1) # of the packaging, for one version of the program
