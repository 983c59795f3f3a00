using System;
using System.Collections.Generic;
using UnityEngine;
using Game.Combat;

namespace Game.Inventory
{
    // What the hero carries. The equipped weapon may be null: the hero starts unarmed in some
    // levels and drops a weapon when it breaks.
    public class PlayerInventory : MonoBehaviour
    {
        [SerializeField] private Weapon startingWeapon;

        private readonly List<Weapon> weapons = new List<Weapon>();

        public Weapon EquippedWeapon { get; private set; }
        public event Action<Weapon> WeaponChanged;

        private void Awake()
        {
            if (startingWeapon != null)
            {
                weapons.Add(startingWeapon);
                EquippedWeapon = startingWeapon;
            }
        }

        public void Pick(Weapon weapon)
        {
            weapons.Add(weapon);
            Equip(weapon);
        }

        public void DropEquipped()
        {
            if (EquippedWeapon == null)
            {
                return;
            }
            weapons.Remove(EquippedWeapon);
            Destroy(EquippedWeapon.gameObject);
            Equip(weapons.Count > 0 ? weapons[0] : null);
        }

        private void Equip(Weapon weapon)
        {
            EquippedWeapon = weapon;
            WeaponChanged?.Invoke(weapon);
        }
    }
}
