include $(sort $(wildcard $(BR2_EXTERNAL_TARVOLIN_PATH)/package/*/*.mk))
