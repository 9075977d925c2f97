include $(sort $(wildcard $(BR2_EXTERNAL_VELK_PATH)/package/*/*.mk))
