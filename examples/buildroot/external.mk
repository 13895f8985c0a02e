include $(sort $(wildcard $(BR2_EXTERNAL_TTD_PATH)/package/*/*.mk))
