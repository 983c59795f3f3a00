using System;
using UnityEngine;

namespace Game.Player
{
    // Hit points of the hero; raises Died once when they reach zero.
    public class PlayerHealth : MonoBehaviour
    {
        [SerializeField] private int maxHealth = 100;

        public int Current { get; private set; }
        public bool IsDead => Current <= 0;
        public event Action Died;

        private void Awake()
        {
            Current = maxHealth;
        }

        public void TakeDamage(int amount)
        {
            if (IsDead || amount <= 0)
            {
                return;
            }
            Current = Mathf.Max(0, Current - amount);
            if (IsDead)
            {
                Died?.Invoke();
            }
        }

        public void Heal(int amount)
        {
            if (!IsDead)
            {
                Current = Mathf.Min(maxHealth, Current + amount);
            }
        }
    }
}
