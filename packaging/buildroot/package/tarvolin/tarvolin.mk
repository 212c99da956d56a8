################################################################################
#
# tarvolin
#
################################################################################

# The sources have no public address yet: they are taken from a folder of yours. LICENCE.md says who may.
TARVOLIN_VERSION = $(shell sed -n 's/^project.tarvolin VERSION \([0-9.]*\).*/\1/p' $(BR2_EXTERNAL_TARVOLIN_PATH)/../../CMakeLists.txt)
TARVOLIN_SITE = $(call qstrip,$(BR2_PACKAGE_TARVOLIN_SOURCE))
TARVOLIN_SITE_METHOD = local
TARVOLIN_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude=/build
TARVOLIN_DEPENDENCIES = libcurl mtd
TARVOLIN_CONF_OPTS = -DTARVOLIN_TESTS=OFF -DTARVOLIN_TOOLS=OFF -DTARVOLIN_HARDENED=ON \
	-DTARVOLIN_RESTORE=$(if $(BR2_PACKAGE_TARVOLIN_RESTORE),ON,OFF)

ifeq ($(BR2_PACKAGE_TARVOLIN_FETCH),y)
TARVOLIN_DEPENDENCIES += libsodium
TARVOLIN_CONF_OPTS += -DTARVOLIN_FETCH=ON
else
TARVOLIN_CONF_OPTS += -DTARVOLIN_FETCH=OFF
endif

$(eval $(cmake-package))
